/*
 * json.h - JSON request bodies of the web API: a strict parser into a small
 * value tree. Bodies are capped before they get here; the parser also bounds
 * the nesting depth, so no input can exhaust the stack.
 */
#ifndef PBWEB_JSON_H
#define PBWEB_JSON_H

#include <string>
#include <utility>
#include <vector>

namespace pbweb {

struct Json {
    enum Type { NUL, BOOL, NUMBER, STRING, ARRAY, OBJECT } type = NUL;
    bool boolean = false;
    double number = 0;
    std::string text;                                  // STRING: UTF-8
    std::vector<Json> items;                           // ARRAY
    std::vector<std::pair<std::string, Json>> fields;  // OBJECT, in body order

    // The field of an object (the last one of that name), or null.
    const Json *get(const std::string &key) const;
};

// Parses a whole document (RFC 8259: one value, whitespace around it).
// Strings must be valid UTF-8 and their \u escapes whole characters.
// Returns false, with where and what went wrong in *error, on anything else.
bool parse_json(const std::string &body, Json *out, std::string *error);

}  // namespace pbweb

#endif
