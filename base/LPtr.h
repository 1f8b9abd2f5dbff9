// The owning pointer: destroys the object that it holds when it is given another or goes away itself.
//
// It is not a std::unique_ptr because a holder may be asked for its object while that object is being destroyed: what
// it answers then (null) is promised here, in both the assignment and the destructor. It does not lock: whoever assigns
// one that other threads read has to see to it that they do not read at that moment.
#pragma once

#include <type_traits>
#include <utility>

template <typename T>
class LPtr {
  public:
    LPtr() = default;

    /// Owns `object` (made with new), or nothing when it is null.
    explicit LPtr(T* object) : object_(object) {}

    LPtr(const LPtr&) = delete;
    LPtr& operator=(const LPtr&) = delete;

    /// Destroys the held object, if any.
    ~LPtr() { Destroy(); }

    /// First destroys the object that is held, if any, then keeps `object` (which may be null). While the old object's
    /// destructor runs, nothing is held. Assigning the object that is held already changes nothing.
    LPtr& operator=(T* object) {
        if (object == object_) return *this;
        Destroy();
        object_ = object;
        return *this;
    }

    /// Gives the held object, or null, to the caller and holds nothing.
    [[nodiscard]] T* Detach() { return std::exchange(object_, nullptr); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    friend bool operator==(const LPtr& pointer, const T* object) { return pointer.object_ == object; }

  private:
    // A destructor may reach back and assign to this pointer: what it left here is destroyed as well.
    void Destroy() {
        static_assert(!std::is_polymorphic_v<T> || std::has_virtual_destructor_v<T>,
                      "objects of a derived type need a virtual destructor");
        while (object_ != nullptr) delete Detach();
    }

    T* object_ = nullptr;
};
