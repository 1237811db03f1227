#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace kavaro {

// The one owner of one reference to a counted object. Move-only: a second reference is the visible call share().
// adopt() takes over a reference that the caller owns (a fresh object has count 1). Raw pointers borrow.
template <class T>
class TuvRef {
  public:
    TuvRef() = default;
    TuvRef(std::nullptr_t) {}
    static TuvRef adopt(T* object) {
        TuvRef ref;
        ref._object = object;
        return ref;
    }
    static TuvRef share(T* object) {
        if (object) object->retain();
        return adopt(object);
    }
    TuvRef share() const { return share(_object); }

    TuvRef(TuvRef&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
    template <class U>
    requires(!std::is_same_v<T, U> && std::is_convertible_v<U*, T*>) TuvRef(TuvRef<U>&& other)
    noexcept : _object(other.leak()) {}
    // Takes the new object before the old one goes: `ref = std::move(ref->child)` is safe.
    TuvRef& operator=(TuvRef&& other) noexcept {
        T* old = std::exchange(_object, std::exchange(other._object, nullptr));
        if (old) old->release();
        return *this;
    }
    ~TuvRef() {
        if (_object) _object->release();
    }

    T* get() const { return _object; }
    T* operator->() const { return _object; }
    T& operator*() const { return *_object; }
    explicit operator bool() const { return _object != nullptr; }
    // Gives the reference to the caller, who releases it.
    T* leak() { return std::exchange(_object, nullptr); }

  private:
    T* _object = nullptr;
};

// A new object, owned by the handle.
template <class T, class... Arguments>
TuvRef<T> make(Arguments&&... arguments) {
    return TuvRef<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace kavaro
