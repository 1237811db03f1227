#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/ByteView.h"

namespace kavaro {

// Growable bytes on the heap, moved and never copied. New bytes are not zeroed. A default-made buffer is null (no
// data) until something is reserved or appended. Not thread-safe. An allocation that fails ends the process.
class ByteBuffer {
  public:
    ByteBuffer() = default;
    explicit ByteBuffer(std::size_t capacity) { reserve(capacity); }
    ByteBuffer(ByteBuffer&& other) noexcept { swap(other); }
    ByteBuffer& operator=(ByteBuffer&& other) noexcept {
        ByteBuffer(std::move(other)).swap(*this);
        return *this;
    }
    ~ByteBuffer() { std::free(_data); }

    static ByteBuffer copyOf(ByteView bytes) {
        ByteBuffer buffer(bytes.size());
        buffer.append(bytes.data(), bytes.size());
        return buffer;
    }

    bool isNull() const { return _data == nullptr; }
    std::size_t size() const { return _size; }
    std::size_t capacity() const { return _capacity; }
    std::uint8_t* data() { return _data; }
    const std::uint8_t* data() const { return _data; }
    ByteView view() const { return {_data, _size}; }

    void reserve(std::size_t capacity) {
        if (capacity > _capacity || !_data) reallocate(capacity ? capacity : 1);
    }
    // Adds `length` bytes of unspecified content and returns the first of them; valid until the next growth.
    std::uint8_t* extend(std::size_t length) {
        if (_size + length > _capacity) reallocate(grownCapacity(_size + length));
        std::uint8_t* tail = _data + _size;
        _size += length;
        return tail;
    }
    void append(const void* bytes, std::size_t length) {
        if (length) std::memcpy(extend(length), bytes, length);
    }
    void truncate(std::size_t size) {
        if (size < _size) _size = size;
    }
    void clear() { _size = 0; }

  private:
    std::size_t grownCapacity(std::size_t needed) const {
        std::size_t doubled = _capacity * 2;
        return needed > doubled ? needed : doubled;
    }
    void reallocate(std::size_t capacity) {
        void* data = std::realloc(_data, capacity);
        if (!data) std::abort();
        _data = static_cast<std::uint8_t*>(data);
        _capacity = capacity;
    }
    void swap(ByteBuffer& other) noexcept {
        std::swap(_data, other._data);
        std::swap(_size, other._size);
        std::swap(_capacity, other._capacity);
    }

    std::uint8_t* _data = nullptr;
    std::size_t _size = 0;
    std::size_t _capacity = 0;
};

}  // namespace kavaro
