// What every object handed out by <xpc/xpc.h> is: a count of references and a type.
//
// Object stands first in each of them, so the address that callers hold as `void*` is the address of the Object.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include <xpc/xpc.h>

namespace transport {

struct Object {
    constexpr explicit Object(xpc_type_t type) : objectType(type) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void retain() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        // Nobody can take a reference beside the last one, so that one needs no exchange with other processors.
        if (references.load(std::memory_order_acquire) == 1 ||
            references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            destroy();
        }
    }

    const xpc_type_t objectType;
    std::atomic<uint32_t> references{1};

  protected:
    /// Called once, when the last reference is gone.
    virtual void destroy() noexcept {}
    ~Object() = default;  // not virtual, so that constant objects need no destruction at exit
};

/// One reference, given back at the end of the scope.
template <typename T>
class Ref {
  public:
    Ref() = default;
    /// Takes one more reference.
    static Ref share(T* object) {
        if (object != nullptr) object->retain();
        return adopt(object);
    }
    /// Takes over the caller's reference.
    static Ref adopt(T* object) {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_ != nullptr) object_->release();
    }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// Hands the reference to the caller.
    T* leak() { return std::exchange(object_, nullptr); }

  private:
    T* object_ = nullptr;
};

/// While one lives, this thread is calling a handler of `connection`: what an error object is asked about.
class CurrentConnection {
  public:
    explicit CurrentConnection(xpc_connection_t connection);
    ~CurrentConnection();
    CurrentConnection(const CurrentConnection&) = delete;
    CurrentConnection& operator=(const CurrentConnection&) = delete;

    static xpc_connection_t get();

  private:
    xpc_connection_t outer_;
};

}  // namespace transport

/// Types and the error singletons are objects too; they are never counted and never go.
struct _xpc_type_s : transport::Object {
    constexpr explicit _xpc_type_s(xpc_type_t type) : Object(type) {}
};
