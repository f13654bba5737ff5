// A read-only view of received bytes that never reads past its end: every
// take fails instead, so parsers of outside data stay inside their buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class ByteCursor {
public:
    ByteCursor(const void *data, size_t len) : p_(static_cast<const uint8_t *>(data)), left_(len) {}

    size_t left() const { return left_; }
    const uint8_t *peek() const { return p_; }

    // The next n bytes, or nullptr (and nothing consumed) when fewer remain.
    const uint8_t *take(size_t n) {
        if (n > left_)
            return nullptr;
        const uint8_t *at = p_;
        p_ += n;
        left_ -= n;
        return at;
    }

    // Copies a record of type T out of the stream; false when it doesn't fit.
    template <typename T> bool take_into(T *out) {
        const uint8_t *at = take(sizeof(T));
        if (!at)
            return false;
        memcpy(out, at, sizeof(T));
        return true;
    }

    bool skip(size_t n) { return take(n) != nullptr; }

    // A sub-cursor over the next n bytes, consumed from this one.
    bool sub(size_t n, ByteCursor *out) {
        const uint8_t *at = take(n);
        if (!at)
            return false;
        *out = ByteCursor(at, n);
        return true;
    }

private:
    const uint8_t *p_;
    size_t left_;
};
