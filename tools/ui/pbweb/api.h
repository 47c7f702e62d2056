/*
 * api.h - the JSON API of the web page: one function per operation, each on
 * the user side's operations (pbui::Phonebook, without waiting), answering
 * with a status and a JSON body (an export: the file). Errors are
 * {"ok":false,"code":N,"error":"...","state":WORD}, with pbui's words for
 * the result codes and the state word the page tells the user from (see
 * state_word). The server has checked the request (login, origin, body type and
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

// What a result of the phonebook means to the person at the page, as a
// word the page has its own text for: "ready"; "reading" (the SIM
// phonebook is being read); "no_card" (the modem or the card does not
// answer, or the card could not be read); "unreachable" (the phonebook
// service cannot be reached); "busy" (too many requests waiting); "failed"
// (the phonebook refused or failed this request). A SIM that has been
// "reading" for longer than any read of a card takes is "no_card": the
// service answers the same while it asks a modem that is gone. Any thread.
const char *state_word(int rc);
// A SIM phonebook answer that was not "being read" ends such a wait.
void note_sim_answer(int rc);

// The HTTP status for a phonebook result code: 400 bad input, 404 no entry,
// 503 (with Retry-After) while the SIM is being read ("reading":true in
// the body) or the service's queue is full, 507 full, 500 else.
int http_status(int rc);

Response handle_api(Phonebook &pb, const ApiRequest &req);

}  // namespace pbweb

#endif
