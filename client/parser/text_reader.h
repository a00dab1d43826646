// Formatted extraction over text in memory, without a stream: the one text scanner of the parsers.
//
//     text_reader lines(text);
//     std::string_view line;
//     while (lines.next_line(line)) {
//         text_reader fields(line);
//         fields.word(name);
//         fields.number(count);
//     }
//
// Every result is that of std::istringstream in the "C" locale: a field that is missing leaves its
// variable unchanged, one that is no number stores 0, one too large stores the largest value of its
// type, and after any of these all later reads of the same reader fail and change nothing.
#ifndef MONCL_TEXT_READER_H
#define MONCL_TEXT_READER_H

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>

/// The text of a payload up to its first NUL. It is not copied: valid as long as the payload is.
/// @throws std::logic_error for a null pointer, as std::string does
inline std::string_view payload_text(const unsigned char* payload) {
    if (payload == nullptr)
        throw std::logic_error("basic_string: construction from null is not valid");
    return reinterpret_cast<const char*>(payload);
}

/// Reads a text from its start. Does not own the text; the views it hands out are parts of it.
/// Each read returns whether it succeeded.
class text_reader {
public:
    explicit text_reader(std::string_view text)
        : at_(text.data()), end_(text.data() + text.size()) {}

    /// Whether no read has failed so far.
    explicit operator bool() const { return (state_ & failed) == 0; }

    /// The rest of the text up to @p terminator, which is taken but not part of @p line. As
    /// std::getline does, fails at the end of the text and empties @p line if that is only noticed
    /// now.
    bool next_line(std::string_view& line, char terminator = '\n') {
        if (!ready())
            return false;
        const std::size_t left = static_cast<std::size_t>(end_ - at_);
        if (left == 0) {
            line = {};
            return fail_at_end();
        }
        const void* found = std::memchr(at_, terminator, left);
        if (found == nullptr) {
            line = std::string_view(at_, left);
            at_ = end_;
            state_ |= ended;
            return true;
        }
        const char* stop = static_cast<const char*>(found);
        line = std::string_view(at_, static_cast<std::size_t>(stop - at_));
        at_ = stop + 1;
        return true;
    }

    /// The next blank-separated word.
    bool word(std::string_view& text) {
        if (!start_field())
            return false;
        const char* start = at_;
        while (at_ != end_ && !is_blank(*at_))
            ++at_;
        note_end();
        text = std::string_view(start, static_cast<std::size_t>(at_ - start));
        return true;
    }

    /// Reads and drops @p count words.
    bool skip_words(int count) {
        std::string_view dropped;
        for (int i = 0; i < count; ++i)
            word(dropped);
        return static_cast<bool>(*this);
    }

    /// The next character that is not blank.
    bool character(char& c) {
        if (!start_field())
            return false;
        c = *at_++;
        return true;
    }

    /// The next decimal number, signed or not as @p value is; a minus before an unsigned number
    /// negates it modulo its size, as the standard has it.
    template<class Int>
    bool number(Int& value) {
        static_assert(std::is_integral_v<Int>);
        // Arithmetic below int's size would be done in int anyway, with its sign.
        using unsigned_int =
            std::conditional_t<sizeof(Int) < sizeof(unsigned), unsigned, std::make_unsigned_t<Int>>;
        using limits = std::numeric_limits<Int>;
        if (!start_field())
            return false;
        const bool negative = *at_ == '-';
        if (negative || *at_ == '+')
            ++at_;
        const char* const digits = at_;
        constexpr std::ptrdiff_t safe_digits = std::numeric_limits<unsigned_int>::digits10;
        const char* const safe_end = end_ - at_ > safe_digits ? at_ + safe_digits : end_;
        unsigned_int sum = 0;
        for (unsigned d; at_ != safe_end && (d = digit(*at_)) < 10; ++at_)
            sum = sum * 10 + d;
        if (at_ == digits) {
            value = 0;
            note_end();
            return fail();
        }
        unsigned_int most = static_cast<unsigned_int>(limits::max());
        if (negative && limits::is_signed)
            ++most;
        bool overflow = sum > most;
        for (unsigned d; at_ != end_ && (d = digit(*at_)) < 10; ++at_) {
            overflow = overflow || sum > most / 10 || sum * 10 > most - d;
            sum = sum * 10 + d;
        }
        note_end();
        if (overflow) {
            value = negative && limits::is_signed ? limits::min() : limits::max();
            return fail();
        }
        value = static_cast<Int>(negative ? 0 - sum : sum);
        return true;
    }

    /// Skips blanks; not a failure at the end of the text.
    void skip_blanks() {
        if (!ready())
            return;
        pass_blanks();
        note_end();
    }

private:
    // Like a stream, remembers having met the end apart from having failed.
    enum : unsigned char { ended = 1, failed = 2 };

    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static unsigned digit(char c) { return static_cast<unsigned>(c) - '0'; }

    bool fail() {
        state_ |= failed;
        return false;
    }
    bool fail_at_end() {
        state_ |= ended | failed;
        return false;
    }
    bool ready() { return state_ == 0 || fail(); }
    void note_end() {
        if (at_ == end_)
            state_ |= ended;
    }
    void pass_blanks() {
        while (at_ != end_ && is_blank(*at_))
            ++at_;
    }
    bool start_field() {
        if (!ready())
            return false;
        pass_blanks();
        return at_ != end_ || fail_at_end();
    }

    const char* at_;
    const char* end_;
    unsigned char state_ = 0;
};

#endif
