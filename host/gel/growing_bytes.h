/// Bytes that grow at the end, and numbers in them, least significant byte first.
///
/// Not std::vector: what is added isn't cleared first, and there is always room behind the end for
/// code that reads or writes whole blocks.
#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

namespace gel {

static_assert(std::endian::native == std::endian::little,
              "numbers are copied as they stand in the file");

template <class Number>
Number load(const uchar* bytes) {
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class Number>
void store(uchar* bytes, Number value) {
    std::memcpy(bytes, &value, sizeof value);
}

class GrowingBytes {
public:
    /// Bytes behind the end that may be read and written; what they hold is undefined.
    static constexpr size_t slack = 64;

    const uchar* data() const { return bytes_.get(); }
    uchar* data() { return bytes_.get(); }
    size_t size() const { return size_; }
    bool isEmpty() const { return size_ == 0; }
    void clear() { size_ = 0; }

    /// Room for `bytes` more; returns the end. Throws std::bad_alloc.
    uchar* reserve(size_t bytes) {
        if (capacity_ - size_ < bytes || bytes_ == nullptr)
            grow(size_ + bytes);
        return bytes_.get() + size_;
    }

    /// Takes what was written behind the end into the size.
    void commit(size_t bytes) { size_ += bytes; }

    /// Adds bytes that are still to be written, and returns their place.
    uchar* add(size_t bytes) {
        uchar* const place = reserve(bytes);
        size_ += bytes;
        return place;
    }

    void append(const void* bytes, size_t size) {
        if (size > 0)
            std::memcpy(add(size), bytes, size);
    }

    template <class Number>
    void put(Number value) {
        store(add(sizeof value), value);
    }

private:
    void grow(size_t needed) {
        const size_t capacity = std::max(needed, 2 * capacity_);
        std::unique_ptr<uchar[]> larger(new uchar[capacity + slack]);
        if (size_ > 0)
            std::memcpy(larger.get(), bytes_.get(), size_);
        bytes_ = std::move(larger);
        capacity_ = capacity;
    }

    std::unique_ptr<uchar[]> bytes_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

/// Takes numbers off the front of bytes that nobody vouches for. Once one doesn't fit, `ok` is
/// false and all further ones are 0.
class ByteTaker {
public:
    ByteTaker(const uchar* bytes, size_t size) : next_(bytes), left_(size) {}

    template <class Number>
    Number take() {
        const uchar* const bytes = takeBytes(sizeof(Number));
        return bytes != nullptr ? load<Number>(bytes) : Number{};
    }

    /// Null when there are fewer.
    const uchar* takeBytes(size_t size) {
        if (size > left_) {
            ok_ = false;
            left_ = 0;
            return nullptr;
        }
        const uchar* const bytes = next_;
        next_ += size;
        left_ -= size;
        return bytes;
    }

    bool ok() const { return ok_; }
    size_t left() const { return left_; }

private:
    const uchar* next_;
    size_t left_;
    bool ok_ = true;
};

} // namespace gel
