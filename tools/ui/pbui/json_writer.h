/*
 * json_writer.h - the one JSON writer of the user interfaces: every answer
 * of pbcli --json and of pbweb's API is put together here, so that text is
 * escaped one way and an entry, a list or a report looks the same in both.
 *
 * Pure functions on strings; no state, any thread. Lengths in bytes.
 */
#ifndef PBUI_JSON_WRITER_H
#define PBUI_JSON_WRITER_H

#include <string>
#include <string_view>
#include <vector>

#include "zpt_ui_pb_api.h"

namespace pbui {

/* Text as a JSON string literal. Control characters are escaped; bytes that
 * are not valid UTF-8 become U+FFFD so that the output always parses. */
std::string json_string(const std::string &s);
std::string json_entry(const pb_flash_info &e);
std::string json_entries(const std::vector<pb_flash_info> &v);
/* Appends [entry,...] of n entries to *out: the list answer of a whole
 * phonebook, written in one allocation. */
void append_json_entries(std::string *out, const pb_flash_info *v, size_t n);
std::string json_ints(const std::vector<int> &v); /* [1,2,3] */

/* A JSON object, its members in the order added:
 *   JsonObject().add("ok", true).add("phonebook", "sim").raw("entry", json_entry(e)).str()
 * raw() takes a value already written as JSON (an entry, a list, an object). */
class JsonObject {
public:
    JsonObject &add(std::string_view key, bool v);
    JsonObject &add(std::string_view key, long long v);
    JsonObject &add(std::string_view key, int v) { return add(key, static_cast<long long>(v)); }
    JsonObject &add(std::string_view key, size_t v) { return add(key, static_cast<long long>(v)); }
    JsonObject &add(std::string_view key, const char *v);
    JsonObject &add(std::string_view key, std::string_view v);
    JsonObject &add(std::string_view key, const std::string &v) { return add(key, std::string_view(v)); }
    JsonObject &add(std::string_view key, const JsonObject &v);
    JsonObject &null(std::string_view key);
    JsonObject &raw(std::string_view key, std::string_view json);
    /* Appends the value of `key` through write(std::string *): a large
     * value written into the object's own text, without a copy. */
    template <typename Write> JsonObject &with(std::string_view key, Write write)
    {
        write(&this->key(key).text_);
        return *this;
    }
    /* Appends the members of another object. */
    JsonObject &members(const JsonObject &other);

    std::string str() const; /* the object's text */
    std::string take();      /* the same, leaving this object spent */

private:
    JsonObject &key(std::string_view k);
    std::string text_ = "{";
};

}  // namespace pbui

#endif
