// A small strict JSON reader for the tests: parses the tool's output back
// and refuses what a real parser would (raw control characters, bad escapes,
// trailing text). \u escapes are checked but kept as written.
#ifndef JSON_MINI_H
#define JSON_MINI_H

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace json {

struct Value {
    bool b = false;
    double n = 0;
    std::string s;
    std::vector<Value> a;
    std::map<std::string, Value> o;

    const Value &operator[](const std::string &k) const
    {
        static const Value none;
        auto it = o.find(k);
        return it == o.end() ? none : it->second;
    }
    const Value &operator[](size_t i) const { return a.at(i); }
    int i() const { return static_cast<int>(n); }
};

class Reader {
public:
    explicit Reader(const std::string &t) : p_(t.c_str()) {}
    bool parse(Value *v) { return value(v) && (ws(), *p_ == '\0'); }

private:
    void ws() { p_ += std::strspn(p_, " \t\r\n"); }
    bool lit(const char *w) { return std::strncmp(p_, w, std::strlen(w)) == 0 ? (p_ += std::strlen(w), true) : false; }

    bool str(std::string *out)
    {
        static const char kFrom[] = "\"\\/bfnrt", kTo[] = "\"\\/\b\f\n\r\t";
        if (!lit("\""))
            return false;
        for (unsigned char c; (c = static_cast<unsigned char>(*p_++)) != '"';) {
            if (c < 0x20)
                return false;  // also the end of the text
            if (c != '\\') {
                *out += static_cast<char>(c);
            } else if (const char *k = *p_ ? std::strchr(kFrom, *p_) : nullptr) {
                *out += kTo[k - kFrom];
                ++p_;
            } else if (*p_ == 'u' && std::strspn(p_ + 1, "0123456789abcdefABCDEF") >= 4) {
                out->append(p_ - 1, 6);
                p_ += 5;
            } else {
                return false;
            }
        }
        return true;
    }

    // Items up to close, separated by commas; the opening bracket is read.
    template <typename F>
    bool list(const char *close, F item)
    {
        ++p_;
        ws();
        if (lit(close))
            return true;
        do {
            if (!item())
                return false;
            ws();
        } while (lit(","));
        return lit(close);
    }

    bool value(Value *v)
    {
        ws();
        if (*p_ == '{')
            return list("}", [&] {
                std::string k;
                return (ws(), str(&k)) && (ws(), lit(":")) && value(&v->o[k]);
            });
        if (*p_ == '[')
            return list("]", [&] { return v->a.emplace_back(), value(&v->a.back()); });
        if (*p_ == '"')
            return str(&v->s);
        if (lit("true"))
            return v->b = true;
        if (lit("false") || lit("null"))
            return true;
        char *end = nullptr;
        v->n = std::strtod(p_, &end);
        return end != p_ && (p_ = end, true);
    }

    const char *p_;
};

inline bool parse(const std::string &text, Value *v) { return Reader(text).parse(v); }

}  // namespace json

#endif
