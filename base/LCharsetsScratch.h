// Scratch for the length of a call: on the stack for texts of the usual size, one heap block above.
#pragma once

#include <cstddef>
#include <memory>

namespace LCharsetsDetail {

class UnitScratch {
  public:
    static constexpr size_t onStack = 4096;

    /// Room for `count` units, uninitialised.
    explicit UnitScratch(size_t count) : heap_(count > onStack ? new unsigned short[count] : nullptr) {}

    unsigned short* data() { return heap_ != nullptr ? heap_.get() : stack_; }

  private:
    unsigned short stack_[onStack];
    std::unique_ptr<unsigned short[]> heap_;
};

}  // namespace LCharsetsDetail
