#pragma once

namespace MrlHbf {

class Block;

// Turns a block's stored form into its contents, in place.
class BlockTransformation {
public:
    virtual ~BlockTransformation() = default;
    virtual void operator()(Block& block) = 0;
};

}  // namespace MrlHbf
