// Formatted extraction over text in memory, without a stream: the one text scanner of the parsers.
//
//     text_reader lines(text);
//     std::string_view line;
//     while (lines.next_line(line)) {
//         text_reader fields = lines.fields_of(line);
//         fields.word(name);
//         fields.number(count);
//     }
//
// Every result is that of std::istringstream in the "C" locale: a field that is missing leaves its
// variable unchanged, one that is no number stores 0, one too large stores the largest value of its
// type, and after any of these all later reads of the same reader fail and change nothing.
#ifndef MONCL_TEXT_READER_H
#define MONCL_TEXT_READER_H

#include "eight_digits.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>

/// The text of a payload: up to its first NUL, and at most @p most bytes. It is a view of the
/// payload, and valid as long as that is.
/// @throws std::logic_error for a null pointer, as std::string does
inline std::string_view payload_text(const unsigned char* payload,
                                     std::size_t most = std::string_view::npos) {
    if (payload == nullptr)
        throw std::logic_error("basic_string: construction from null is not valid");
    const char* text = reinterpret_cast<const char*>(payload);
    if (most == std::string_view::npos)
        return text;
    return {text, strnlen(text, most)};
}

/// Reads a text from its start. Does not own the text; the views it hands out are parts of it.
/// Each read returns whether it succeeded.
class text_reader {
public:
    explicit text_reader(std::string_view text)
        : at_(text.data()), end_(text.data() + text.size()), readable_(end_) {}

    /// A reader of @p line, which this reader's `next_line` gave.
    text_reader fields_of(std::string_view line) const {
        text_reader fields(line);
        fields.readable_ = readable_;
        return fields;
    }

    /// Whether no read has failed so far.
    explicit operator bool() const { return (state_ & failed) == 0; }

    /// The rest of the text up to @p terminator, which is taken but not part of @p line. As
    /// std::getline does, fails at the end of the text; @p line is then emptied, unless a read
    /// before had met the end.
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
        if (!start_field())
            return false;
        if (const unsigned first = digit(*at_);
            first < 10 && end_ - at_ > 1 && digit(at_[1]) >= 10) {
            ++at_;
            value = static_cast<Int>(first);
            return true;
        }
        // Up to eight digits, or twice that many, are read in one piece. A sign, or a number that
        // may not fit, takes the long way.
        std::uint32_t sum =
            0; // Without this, compilers may warn, for leading_digits may not set it.
        const unsigned digits = leading_digits(at_, sum);
        if (digits == 0 || digits > std::numeric_limits<Int>::digits10)
            return take_any_number(value);
        if (digits < 8 || digit(at_[8]) >= 10)
            return take_number(digits, sum, value);
        if constexpr (sizeof(Int) == 8) {
            constexpr std::uint32_t powers[] = {1,      10,      100,      1000,     10000,
                                                100000, 1000000, 10000000, 100000000};
            std::uint32_t low = 0;
            const unsigned more = leading_digits(at_ + 8, low);
            if (more > 0 && (more < 8 || digit(at_[16]) >= 10))
                return take_number(8 + more, std::uint64_t{sum} * powers[more] + low, value);
        }
        return take_any_number(value);
    }

    /// Reads as many of the next @p count numbers as stand in columns: right-aligned in eleven
    /// characters, of up to eight digits and without a leading zero, as the kernel prints its
    /// tables of counts. Stops at the first one that is not in this form, without a failure: call
    /// `number` there.
    /// @param values receives them
    /// @return the text of those columns
    std::string_view columns(std::uint64_t* values, std::size_t count) {
        constexpr std::ptrdiff_t width = eight_digits::column_width;
        if (state_ != 0)
            return {};
        const char* const start = at_;
        const char* at = at_; // the compiler keeps a local in a register, but not a member
        for (; count > 0 && end_ - at > width && digit(at[width]) >= 10; --count, at += width)
            if (!eight_digits::column_number(at, *values++))
                break;
        at_ = at;
        return std::string_view(start, static_cast<std::size_t>(at - start));
    }

    /// Skips blanks; not a failure at the end of the text.
    void skip_blanks() {
        if (!ready())
            return;
        pass_blanks();
        note_end();
    }

private:
    // A stream keeps apart that it has met the end and that a read has failed, and so does this.
    enum : unsigned char { ended = 1, failed = 2 };

    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static unsigned digit(char c) { return static_cast<unsigned>(c) - '0'; }

    // `eight_digits::first_digits`; 0 as well where too little may be read. The terminator of a
    // line is no digit, so it ends the line's last number.
    unsigned leading_digits(const char* at, std::uint32_t& value) const {
        return readable_ - at <= 8 ? 0 : eight_digits::first_digits(at, value);
    }

    template<class Int>
    bool take_number(unsigned digits, std::uint64_t sum, Int& value) {
        at_ += digits;
        note_end();
        value = static_cast<Int>(sum);
        return true;
    }

    // What was read, and what follows it; null if that was no number. Two registers hold it.
    template<class Int>
    struct reading {
        Int value;
        const char* rest;
    };

    // Reads a number digit by digit, with its sign and its overflow.
    template<class Int>
    __attribute__((noinline)) static reading<Int> any_number(const char* at, const char* end) {
        // What is smaller than int would be promoted to it, and signed overflow is undefined.
        using unsigned_int =
            std::conditional_t<sizeof(Int) < sizeof(unsigned), unsigned, std::make_unsigned_t<Int>>;
        using limits = std::numeric_limits<Int>;
        const bool negative = *at == '-';
        if (negative || *at == '+')
            ++at;
        unsigned_int most = static_cast<unsigned_int>(limits::max());
        if (negative && limits::is_signed)
            ++most;
        const char* const digits = at;
        unsigned_int sum = 0;
        bool overflow = false;
        for (unsigned d; at != end && (d = digit(*at)) < 10; ++at) {
            overflow = overflow || sum > most / 10 || sum * 10 > most - d;
            sum = sum * 10 + d;
        }
        if (at == digits)
            return {0, nullptr};
        if (overflow)
            return {negative && limits::is_signed ? limits::min() : limits::max(), nullptr};
        return {static_cast<Int>(negative ? 0 - sum : sum), at};
    }

    template<class Int>
    bool take_any_number(Int& value) {
        const reading<Int> read = any_number<Int>(at_, end_);
        value = read.value;
        if (read.rest == nullptr)
            return fail();
        at_ = read.rest;
        note_end();
        return true;
    }

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
        if (!pass_one_blank())
            at_ = after_blanks(at_, end_, readable_);
    }
    // The first character from @p at on that is no blank, or @p end. Most fields follow one blank,
    // so this is a call where `pass_one_blank` is written out. It is static because a reader whose
    // address is passed on cannot stay in registers.
    __attribute__((noinline)) static const char* after_blanks(const char* at, const char* end,
                                                              const char* readable) {
        // Columns are mostly blanks, so eight characters are looked at together while as many may
        // be read.
        for (; readable - at >= 8; at += 8)
            if (const std::uint64_t others = eight_digits::load(at) ^ eight_digits::all_bytes(' ');
                others != 0) {
                at += eight_digits::first_byte(others);
                break;
            }
        while (at != end && is_blank(*at))
            ++at;
        return at;
    }
    // Skips a blank, if there is one, and returns whether a field follows. One blank is the most
    // frequent case, and this costs less than the loop for any number of them.
    bool pass_one_blank() {
        if (at_ != end_ && *at_ == ' ')
            ++at_;
        return at_ != end_ && !is_blank(*at_);
    }
    bool start_field() {
        if (!ready())
            return false;
        pass_blanks();
        return at_ != end_ || fail_at_end();
    }

    const char* at_;
    const char* end_;
    const char* readable_; // end of the memory that may be read: at or after end_
    unsigned char state_ = 0;
};

#endif
