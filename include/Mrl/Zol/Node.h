#pragma once
#include <cstdint>
#include <string>

namespace MrlZol {

// Base of every payload of the model tree.
class Node {
public:
    explicit Node(std::string name = std::string()) : name(std::move(name)) {}
    virtual ~Node() = default;
    virtual std::string GetClassName() const { return "Node"; }
    virtual std::string GetVersion() const { return "0.1"; }
    virtual bool GetFirstFlag() const { return firstFlag != 0; }

    std::string name;
    uint8_t firstFlag = 0;
    uint8_t secondFlag = 0;
    uint32_t word = 0;
};

}  // namespace MrlZol
