// A strict JSON parser for the bodies of API requests: one recursive
// descent over the text, depth bounded (kMaxDepth), strings checked to be
// UTF-8 with whole-character escapes; the first fault ends the parse with
// its place. Answers are written by pbui's JSON writer, not here.
#include "json.h"

#include <cstdlib>

#include "text.h"

namespace pbweb {

namespace {

constexpr int kMaxDepth = 16;

class Parser {
public:
    explicit Parser(const std::string &s) : s_(s) {}

    bool document(Json *out)
    {
        if (!value(out, 0))
            return false;
        space();
        return at_ == s_.size() || fail("text after the JSON value");
    }

    std::string error() const { return error_ + " at byte " + std::to_string(at_); }

private:
    bool fail(const char *what)
    {
        if (error_.empty())
            error_ = what;
        return false;
    }

    void space()
    {
        while (at_ < s_.size() && (s_[at_] == ' ' || s_[at_] == '\t' || s_[at_] == '\n' || s_[at_] == '\r'))
            ++at_;
    }

    bool literal(const char *word)
    {
        for (size_t k = 0; word[k]; ++k, ++at_)
            if (at_ >= s_.size() || s_[at_] != word[k])
                return fail("unknown word");
        return true;
    }

    bool value(Json *out, int depth)
    {
        if (depth > kMaxDepth)
            return fail("nested too deeply");
        space();
        if (at_ >= s_.size())
            return fail("unexpected end");
        switch (s_[at_]) {
        case '{': return object(out, depth);
        case '[': return array(out, depth);
        case '"': out->type = Json::STRING; return string(&out->text);
        case 't': out->type = Json::BOOL, out->boolean = true; return literal("true");
        case 'f': out->type = Json::BOOL, out->boolean = false; return literal("false");
        case 'n': out->type = Json::NUL; return literal("null");
        default: out->type = Json::NUMBER; return number(&out->number);
        }
    }

    // The members of an object or the items of an array, from the opening
    // bracket to `close`, each read by `item`, separated by commas.
    template <typename Item> bool members(char close, Item item)
    {
        ++at_;
        space();
        if (at_ < s_.size() && s_[at_] == close)
            return ++at_, true;
        for (;;) {
            if (!item())
                return false;
            space();
            if (at_ < s_.size() && s_[at_] == ',') {
                ++at_;
                continue;
            }
            if (at_ < s_.size() && s_[at_] == close)
                return ++at_, true;
            return fail(close == '}' ? "expected ',' or '}'" : "expected ',' or ']'");
        }
    }

    bool object(Json *out, int depth)
    {
        out->type = Json::OBJECT;
        return members('}', [&] {
            space();
            std::string key;
            if (at_ >= s_.size() || s_[at_] != '"')
                return fail("expected a field name");
            if (!string(&key))
                return false;
            space();
            if (at_ >= s_.size() || s_[at_++] != ':')
                return fail("expected ':'");
            out->fields.emplace_back(std::move(key), Json());
            return value(&out->fields.back().second, depth + 1);
        });
    }

    bool array(Json *out, int depth)
    {
        out->type = Json::ARRAY;
        return members(']', [&] {
            out->items.emplace_back();
            return value(&out->items.back(), depth + 1);
        });
    }

    bool number(double *out)
    {
        const size_t start = at_;
        const auto digits = [&] {
            size_t n = 0;
            for (; at_ < s_.size() && s_[at_] >= '0' && s_[at_] <= '9'; ++at_)
                ++n;
            return n;
        };
        if (at_ < s_.size() && s_[at_] == '-')
            ++at_;
        if (at_ < s_.size() && s_[at_] == '0')
            ++at_;
        else if (digits() == 0)
            return fail("expected a value");
        if (at_ < s_.size() && s_[at_] == '.' && (++at_, digits() == 0))
            return fail("bad number");
        if (at_ < s_.size() && (s_[at_] == 'e' || s_[at_] == 'E')) {
            ++at_;
            if (at_ < s_.size() && (s_[at_] == '+' || s_[at_] == '-'))
                ++at_;
            if (digits() == 0)
                return fail("bad number");
        }
        *out = std::strtod(s_.substr(start, at_ - start).c_str(), nullptr);
        return true;
    }

    bool hex4(unsigned *out)
    {
        if (at_ + 4 > s_.size())
            return fail("cut \\u escape");
        unsigned v = 0;
        for (int k = 0; k < 4; ++k) {
            const char c = s_[at_++];
            v <<= 4;
            if (c >= '0' && c <= '9')
                v |= static_cast<unsigned>(c - '0');
            else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f')
                v |= static_cast<unsigned>((c | 0x20) - 'a' + 10);
            else
                return fail("bad \\u escape");
        }
        *out = v;
        return true;
    }

    static void put_utf8(std::string *out, char32_t c)
    {
        if (c < 0x80) {
            *out += static_cast<char>(c);
        } else if (c < 0x800) {
            *out += static_cast<char>(0xC0 | (c >> 6));
            *out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            *out += static_cast<char>(0xE0 | (c >> 12));
            *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            *out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            *out += static_cast<char>(0xF0 | (c >> 18));
            *out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            *out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }

    bool escape(std::string *out)
    {
        if (at_ >= s_.size())
            return fail("cut escape");
        const char c = s_[at_++];
        static const char kFrom[] = "\"\\/bfnrt", kTo[] = "\"\\/\b\f\n\r\t";
        for (int k = 0; kFrom[k]; ++k)
            if (c == kFrom[k])
                return *out += kTo[k], true;
        if (c != 'u')
            return fail("bad escape");
        unsigned hi;
        if (!hex4(&hi))
            return false;
        if (hi >= 0xDC00 && hi <= 0xDFFF)
            return fail("lone low surrogate");
        if (hi < 0xD800 || hi > 0xDBFF)
            return put_utf8(out, hi), true;
        unsigned lo;
        if (at_ + 2 > s_.size() || s_[at_] != '\\' || s_[at_ + 1] != 'u')
            return fail("lone high surrogate");
        at_ += 2;
        if (!hex4(&lo))
            return false;
        if (lo < 0xDC00 || lo > 0xDFFF)
            return fail("lone high surrogate");
        put_utf8(out, 0x10000 + ((hi - 0xD800) << 10) + (lo - 0xDC00));
        return true;
    }

    bool string(std::string *out)
    {
        ++at_;  // the opening quote
        for (;;) {
            if (at_ >= s_.size())
                return fail("unterminated string");
            const unsigned char c = static_cast<unsigned char>(s_[at_]);
            if (c == '"')
                return ++at_, true;
            if (c < 0x20)
                return fail("control character in a string");
            if (c == '\\') {
                ++at_;
                if (!escape(out))
                    return false;
                continue;
            }
            char32_t cp;
            const size_t len = pbui::utf8_char(s_, at_, &cp);
            if (len == 0)
                return fail("not UTF-8");
            out->append(s_, at_, len);
            at_ += len;
        }
    }

    const std::string &s_;
    size_t at_ = 0;
    std::string error_;
};

}  // namespace

const Json *Json::get(const std::string &key) const
{
    for (auto it = fields.rbegin(); it != fields.rend(); ++it)
        if (it->first == key)
            return &it->second;
    return nullptr;
}

bool parse_json(const std::string &body, Json *out, std::string *error)
{
    *out = Json();
    Parser p(body);
    if (p.document(out))
        return true;
    *error = p.error();
    return false;
}

}  // namespace pbweb
