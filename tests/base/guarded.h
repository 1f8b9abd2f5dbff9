// An array that ends where the next page may not be touched, so that one element too far ends the test in every build.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

template <typename T>
class Guarded {
  public:
    explicit Guarded(size_t count) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t used = (count * sizeof(T) + page - 1) / page * page;
        size_ = used + page;
        base_ = static_cast<char*>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + used, page, PROT_NONE);
        end_ = base_ + used;
        std::memset(base_, 0x5A, used);
        data_ = reinterpret_cast<T*>(end_) - count;
    }
    ~Guarded() { munmap(base_, size_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    T* data() { return data_; }
    /// The place for `count` elements at the end.
    T* last(size_t count) { return reinterpret_cast<T*>(end_) - count; }

  private:
    size_t size_;
    char* base_;
    char* end_;
    T* data_;
};
