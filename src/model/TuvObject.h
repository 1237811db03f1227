#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/SmallBlocks.h"

namespace kavaro {

// Base of every model object: an intrusive reference count and a few virtual operations. An object is born with count
// 1, owned by whoever made it; TuvRef holds it. The count is a plain number: a tree, with all its objects, is used by
// one thread at a time.
class TuvObject {
  public:
    TuvObject() = default;
    TuvObject(const TuvObject&) = delete;
    TuvObject& operator=(const TuvObject&) = delete;

    static void* operator new(std::size_t bytes) { return SmallBlocks::allocate(bytes); }
    static void operator delete(void* object, std::size_t bytes) { SmallBlocks::free(object, bytes); }

    TuvObject* retain() {
        ++_retainCount;
        return this;
    }
    // Returns the new count; at 0 the object is gone. No guard against one release too many.
    std::uint32_t release() {
        const std::uint32_t left = --_retainCount;
        if (left == 0) destroy();
        return left;
    }
    std::uint32_t retainCount() const { return _retainCount; }

    // Debug output goes to standard error.
    static void debugShift(int shift);
    virtual void debugHeader() const;
    virtual void debug(int shift, int depth) const;
    virtual void debug() const;
    virtual std::string description() const;
    virtual bool isEqual(const TuvObject* other) const;
    // What arrays are sorted and searched by; compared as a signed number.
    virtual std::uint32_t objectID() const;

  protected:
    virtual ~TuvObject() = default;
    // Called once, at count 0. Classes whose objects can be nested deeply put the deletion off, so that taking down
    // a tree needs no stack.
    virtual void destroy() { delete this; }

  private:
    std::uint32_t _retainCount = 1;
};

}  // namespace kavaro
