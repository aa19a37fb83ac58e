#pragma once
#include <fstream>
#include <string>

namespace Mrl::Log {

// Writes formatted log text somewhere.
class Publisher {
public:
    virtual ~Publisher() = default;
    virtual void Publish(const char* text) = 0;
    virtual void Flush() = 0;
};

// Writes to a file that it creates or empties when it is made.
class FilePublisher : public Publisher {
public:
    explicit FilePublisher(const std::string& path);
    void Publish(const char* text) override;
    void Flush() override;

private:
    std::ofstream stream;
};

class NullPublisher : public Publisher {
public:
    void Publish(const char*) override {}
    void Flush() override {}
};

}  // namespace Mrl::Log
