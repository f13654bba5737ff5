// A read-only view of received bytes that never reads past its end: every
// take fails instead, so parsers of outside data stay inside their buffer.
// Beside it, the one way outside text enters a fixed-width field, and what
// every parser of outside bytes says of them.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// What a parser makes of its input. Every parser takes the bytes, their
// length and the record to fill, writes the record in every case (empty on a
// refusal) and returns one of these; only kOk makes the record usable. A
// parser that can't refuse its input returns nothing.
enum class Parse : uint8_t {
    kOk,
    kTooShort,  // the input ends before a part that must be there
    kTooLong,   // a field is longer than its room
    kWrongType, // a message of another kind
    kMissing,   // a part that must be there is absent
    kBadLength, // a part's length is outside its rule
};

class ByteCursor {
public:
    ByteCursor(const void *data = nullptr, size_t len = 0) : p_(static_cast<const uint8_t *>(data)), left_(len) {}

    size_t left() const { return left_; }
    const uint8_t *peek() const { return p_; }
    const char *text() const { return reinterpret_cast<const char *>(p_); }

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

    // The next field of a text: separators are skipped, then the field runs
    // to the next separator. sep ' ' stands for any white space, as "%s"
    // reads it. A NUL ends the text. False when no field is left.
    bool field(char sep, ByteCursor *out) {
        auto is_sep = [sep](uint8_t c) { return sep == ' ' ? isspace(c) != 0 : c == uint8_t(sep); };
        while (left_ && is_sep(*p_))
            skip(1);
        size_t n = 0;
        while (n < left_ && p_[n] && !is_sep(p_[n]))
            n++;
        return n > 0 && sub(n, out);
    }

private:
    const uint8_t *p_;
    size_t left_;
};

// The one way text enters a fixed-width field: at most n - 1 bytes of src
// (stopping at its NUL or at len), always NUL-terminated. Returns whether
// all of src fitted.
inline bool lanhost_copy_text(char *dst, size_t n, const char *src, size_t len = SIZE_MAX) {
    if (n == 0)
        return false;
    size_t have = src ? strnlen(src, len) : 0;
    size_t take = have < n ? have : n - 1;
    if (take)
        memcpy(dst, src, take);
    dst[take] = '\0';
    return take == have;
}
template <size_t N> bool lanhost_copy_text(char (&dst)[N], const char *src, size_t len = SIZE_MAX) {
    return lanhost_copy_text(dst, N, src, len);
}
template <size_t N> bool lanhost_copy_text(char (&dst)[N], const ByteCursor &field) {
    return lanhost_copy_text(dst, N, field.text(), field.left());
}

// Room for a signed 64-bit decimal with its sign and terminator, and some to spare.
constexpr size_t kDecimalRoom = 24;

// A decimal field as strtoll reads it (0 when it holds no number); a field
// longer than kDecimalRoom - 1 is read cut to that length.
inline int64_t lanhost_decimal(const ByteCursor &field) {
    char text[kDecimalRoom];
    lanhost_copy_text(text, field);
    return strtoll(text, nullptr, 10);
}
