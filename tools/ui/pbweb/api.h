/*
 * api.h - the JSON API of the web page: one function per operation, each on
 * the user side's operations (pbui::Phonebook, without waiting), answering
 * with a status and a JSON body (an export: the file). Errors are
 * {"ok":false,"code":N,"error":"..."}, with pbui's words for the result
 * codes. The server has checked the request (login, origin, body type and
 * size) before it gets here.
 */
#ifndef PBWEB_API_H
#define PBWEB_API_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "phonebook.h"
#include "request.h"

namespace pbweb {

// The operations of the user side, made without waiting for the SIM and
// without following a moved entry: the page asks again, or reads the list
// again, itself.
using Phonebook = pbui::Phonebook;

struct Response {
    int status = 200;
    std::string content_type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

// What the server hands over: the route, the query arguments it needs, and
// the body (a JSON text, or the bytes of an uploaded import file).
struct ApiRequest {
    Route route;
    std::string search;      // ?q=
    std::string index_list;  // ?index=
    bool has_index_list = false;
    std::string format;  // ?format= of an import or export, "" when not given
    std::optional<std::string> name, number,
        email;  // ?name= &number= &email= of a check; ?number= of a lookup
    // ?country= of a lookup, else pbweb's --country; none: the router's (NV)
    std::optional<std::string> country;
    std::string body;
    bool login = false;  // pbweb asks for a password (status tells the page)
};

Response error_response(int status, int code, const std::string &message);

// The HTTP status for a phonebook result code: 400 bad input, 404 no entry,
// 503 (with Retry-After) while the SIM is being read ("reading":true in
// the body) or the service's queue is full, 507 full, 500 else.
int http_status(int rc);

Response handle_api(Phonebook &pb, const ApiRequest &req);

}  // namespace pbweb

#endif
