// pbweb's HTTP side: libmicrohttpd's callbacks, the checks every request
// passes before the API (see server.h), and the page's files.
#include "server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <memory>

#include "api.h"
#include "json_writer.h"
#include "page.h"

namespace pbweb {

namespace {

// The answer of a login or logout that went through.
std::string ok_body() { return pbui::JsonObject().add("ok", true).str(); }

constexpr size_t kKiB = 1024;
constexpr size_t kJsonCap = 256 * kKiB;
constexpr size_t kImportCap = 1024 * kKiB;
constexpr size_t kDiscardMax = 4 * kImportCap;  // of a refused body, before hanging up
constexpr const char *kCookie = "pbweb_session";
// Nothing from elsewhere, and the page in no frame of any other page (the
// second for browsers that know only the older header below).
constexpr const char *kPolicy = "default-src 'self'; frame-ancestors 'none'";

// One request while its body arrives.
struct Pending {
    Route route;
    bool api = false;
    std::string body;
    MHD_PostProcessor *form = nullptr;  // an import's multipart body
    bool got_file = false;
    bool file_too_big = false;
    Response refusal = Response{0, "", "", {}};  // status not 0 once the body was refused part-way
    size_t discarded = 0;
    ~Pending()
    {
        if (form)
            MHD_destroy_post_processor(form);
    }
};

std::string header(MHD_Connection *c, const char *name)
{
    const char *v = MHD_lookup_connection_value(c, MHD_HEADER_KIND, name);
    return v ? v : "";
}

// "application/json; charset=utf-8" -> "application/json"
std::string media_type(const std::string &content_type)
{
    std::string t = content_type.substr(0, content_type.find(';'));
    t.erase(std::remove_if(t.begin(), t.end(), [](unsigned char ch) { return std::isspace(ch); }), t.end());
    std::transform(t.begin(), t.end(), t.begin(), [](unsigned char ch) { return std::tolower(ch); });
    return t;
}

// The Host header without its port, in lower case: "[::1]:80" -> "[::1]".
std::string host_name(const std::string &host)
{
    std::string name = host;
    const size_t colon = name.rfind(':');
    if (colon != std::string::npos && name.find(']', colon) == std::string::npos)
        name.erase(colon);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char ch) { return std::tolower(ch); });
    return name;
}

bool host_allowed(const std::string &host, const std::vector<std::string> &names)
{
    const std::string name = host_name(host);
    in_addr a4;
    in6_addr a6;
    if (name == "localhost" || inet_pton(AF_INET, name.c_str(), &a4) == 1)
        return true;
    if (name.size() > 2 && name.front() == '[' && name.back() == ']' &&
        inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), &a6) == 1)
        return true;
    return std::find(names.begin(), names.end(), name) != names.end();
}

void free_body(void *body) { delete static_cast<std::string *>(body); }

// The body moves into the response, which frees it once it is sent: an
// answer is never copied.
enum MHD_Result send(MHD_Connection *c, Response r)
{
    auto body = std::make_unique<std::string>(std::move(r.body));
    MHD_Response *resp = MHD_create_response_from_buffer_with_free_callback_cls(body->size(), body->data(),
                                                                                free_body, body.get());
    if (!resp)
        return MHD_NO;
    body.release();
    MHD_add_response_header(resp, "Content-Type", r.content_type.c_str());
    MHD_add_response_header(resp, "Content-Security-Policy", kPolicy);
    MHD_add_response_header(resp, "X-Content-Type-Options", "nosniff");
    MHD_add_response_header(resp, "X-Frame-Options", "DENY");
    MHD_add_response_header(resp, "Referrer-Policy", "no-referrer");
    MHD_add_response_header(resp, "Cache-Control", "no-store");
    for (const auto &h : r.headers)
        MHD_add_response_header(resp, h.first.c_str(), h.second.c_str());
    const enum MHD_Result ret = MHD_queue_response(c, static_cast<unsigned>(r.status), resp);
    MHD_destroy_response(resp);
    return ret;
}

enum MHD_Result refuse(MHD_Connection *c, int status, const std::string &why)
{
    return send(c, error_response(status, PB_RCODE_ARGSERR, why));
}

enum MHD_Result on_form_field(void *cls, enum MHD_ValueKind, const char *key, const char *, const char *,
                              const char *, const char *data, uint64_t, size_t size)
{
    auto *p = static_cast<Pending *>(cls);
    if (std::strcmp(key, "file") != 0)
        return MHD_YES;
    p->got_file = true;
    if (p->body.size() + size > kImportCap) {
        p->file_too_big = true;
        return MHD_NO;
    }
    p->body.append(data, size);
    return MHD_YES;
}

enum MHD_Result request_cb(void *cls, MHD_Connection *c, const char *url, const char *method, const char *,
                           const char *upload, size_t *upload_size, void **state)
{
    return static_cast<Server *>(cls)->on_request(c, url, method, upload, upload_size, state) ? MHD_YES
                                                                                              : MHD_NO;
}

void done_cb(void *cls, MHD_Connection *, void **state, enum MHD_RequestTerminationCode)
{
    static_cast<Server *>(cls)->on_done(state);
}

bool parse_listen(const std::string &listen, sockaddr_storage *addr, bool *v6, std::string *error)
{
    std::memset(addr, 0, sizeof *addr);
    std::string host, port;
    if (!listen.empty() && listen[0] == '[') {
        const size_t close = listen.find("]:");
        if (close == std::string::npos)
            return *error = "--listen: expected [IPv6]:PORT", false;
        host = listen.substr(1, close - 1), port = listen.substr(close + 2);
    } else {
        const size_t colon = listen.rfind(':');
        if (colon == std::string::npos)
            return *error = "--listen: expected ADDR:PORT", false;
        host = listen.substr(0, colon), port = listen.substr(colon + 1);
    }
    if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
        std::stoi(port) > 65535)
        return *error = "--listen: bad port '" + port + "'", false;
    const auto n = static_cast<uint16_t>(std::stoi(port));
    auto *a4 = reinterpret_cast<sockaddr_in *>(addr);
    auto *a6 = reinterpret_cast<sockaddr_in6 *>(addr);
    if (inet_pton(AF_INET, host.c_str(), &a4->sin_addr) == 1) {
        a4->sin_family = AF_INET, a4->sin_port = htons(n), *v6 = false;
        return true;
    }
    if (inet_pton(AF_INET6, host.c_str(), &a6->sin6_addr) == 1) {
        a6->sin6_family = AF_INET6, a6->sin6_port = htons(n), *v6 = true;
        return true;
    }
    return *error = "--listen: '" + host + "' is not an IP address", false;
}

bool is_loopback(const sockaddr_storage &addr)
{
    if (addr.ss_family == AF_INET)
        return (ntohl(reinterpret_cast<const sockaddr_in *>(&addr)->sin_addr.s_addr) >> 24) == 127;
    const in6_addr &a6 = reinterpret_cast<const sockaddr_in6 *>(&addr)->sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&a6) || (IN6_IS_ADDR_V4MAPPED(&a6) && a6.s6_addr[12] == 127);
}

}  // namespace

StartError Server::start(const ServerOptions &opt, std::string *error)
{
    sockaddr_storage addr;
    bool v6 = false;
    if (!parse_listen(opt.listen, &addr, &v6, error))
        return StartError::OPTIONS;
    tls_ = !opt.tls_cert.empty() || !opt.tls_key.empty();
    country_ = opt.country;
    if (tls_ && (opt.tls_cert.empty() || opt.tls_key.empty()))
        return *error = "--tls-cert and --tls-key go together", StartError::OPTIONS;
    if (!tls_ && !opt.insecure_lan && !is_loopback(addr))
        return *error =
                   "without --tls-cert and --tls-key only a loopback address is served (the password and "
                   "the phonebook would cross the network in clear text); give a certificate, or "
                   "--insecure-lan to serve plain HTTP on " +
                   opt.listen + " anyway",
               StartError::OPTIONS;
    if (tls_ && MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES)
        return *error = "this libmicrohttpd was built without TLS", StartError::FAILED;
    if (!opt.password_file.empty()) {
        auth_ = std::make_unique<Auth>();
        if (!auth_->open(opt.password_file, opt.session_idle, opt.session_max, error))
            return StartError::OPTIONS;
    }
    for (const std::string &h : opt.hosts)
        hosts_.push_back(host_name(h));
    // The PEM texts stay in opt, which outlives the call; libmicrohttpd
    // reads them while it starts.
    const MHD_OptionItem tls_options[] = {
        {tls_ ? MHD_OPTION_HTTPS_MEM_KEY : MHD_OPTION_END, 0, const_cast<char *>(opt.tls_key.c_str())},
        {MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char *>(opt.tls_cert.c_str())},
        {MHD_OPTION_END, 0, nullptr}};
    unsigned flags = MHD_USE_AUTO_INTERNAL_THREAD | (v6 ? MHD_USE_IPv6 : 0) | (tls_ ? MHD_USE_TLS : 0);
    daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, request_cb, this,               //
                               MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr *>(&addr),  //
                               MHD_OPTION_THREAD_POOL_SIZE, opt.threads,                   //
                               MHD_OPTION_CONNECTION_LIMIT, 64u,                           //
                               MHD_OPTION_CONNECTION_TIMEOUT, 30u,                         //
                               MHD_OPTION_ARRAY, tls_options,                              //
                               MHD_OPTION_NOTIFY_COMPLETED, done_cb, this, MHD_OPTION_END);
    if (!daemon_)
        return *error = "cannot listen on " + opt.listen +
                        (tls_ ? " (address in use, or the certificate and key are no PEM pair?)"
                              : " (address in use?)"),
               StartError::FAILED;
    const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    port_ = info ? info->port : 0;
    return StartError::NONE;
}

void Server::stop()
{
    if (daemon_)
        MHD_stop_daemon(daemon_);
    daemon_ = nullptr;
}

void Server::on_done(void **state)
{
    delete static_cast<Pending *>(*state);
    *state = nullptr;
}

bool Server::logged_in(MHD_Connection *c)
{
    return !auth_ || auth_->session(MHD_lookup_connection_value(c, MHD_COOKIE_KIND, kCookie));
}

std::string Server::cookie(const std::string &value, const char *attributes) const
{
    return std::string(kCookie) + "=" + value + "; Path=/" + attributes + "; HttpOnly; SameSite=Strict" +
           (tls_ ? "; Secure" : "");
}

Response Server::login(MHD_Connection *c, const std::string &body)
{
    Json js;
    std::string err;
    const Json *pw = nullptr;
    if (!parse_json(body, &js, &err) || !(pw = js.get("password")) || pw->type != Json::STRING)
        return error_response(400, PB_RCODE_ARGSERR, "expected {\"password\": \"...\"}");
    if (!auth_)
        return Response{200, "application/json", ok_body(), {}};
    const MHD_ConnectionInfo *info = MHD_get_connection_info(c, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    const Auth::Login in = auth_->login(info ? info->client_addr : nullptr, pw->text);
    switch (in.outcome) {
    case Auth::Outcome::OK:
        return Response{200, "application/json", ok_body(), {{"Set-Cookie", cookie(in.token, "")}}};
    case Auth::Outcome::WRONG: return error_response(401, PB_RCODE_ARGSERR, "wrong password");
    case Auth::Outcome::WAIT: {
        const std::string secs = std::to_string(in.wait_secs);
        Response r = error_response(429, PB_RCODE_ARGSERR,
                                    "too many wrong passwords; try again in " + secs +
                                        (in.wait_secs == 1 ? " second" : " seconds"));
        r.headers.emplace_back("Retry-After", secs);
        return r;
    }
    case Auth::Outcome::BROKEN:
        return error_response(500, PB_RCODE_ERROR,
                              "the password file cannot be used; set the password again");
    }
    return error_response(500, PB_RCODE_ERROR, "no session could be made");
}

int Server::on_request(MHD_Connection *c, const char *url, const char *method, const char *upload,
                       size_t *upload_size, void **state)
{
    auto *p = static_cast<Pending *>(*state);
    if (!p) {
        // Headers are in: decide everything that does not need the body.
        auto owned = std::make_unique<Pending>();
        p = owned.get();
        *state = owned.release();
        const std::string path = url;
        if (path.compare(0, 5, "/api/") != 0) {
            if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0)
                return refuse(c, 405, "method not allowed here");
            for (size_t k = 0; k < PAGE_FILE_COUNT; ++k)
                if (path == PAGE_FILES[k].path) {
                    Response r;
                    r.content_type = PAGE_FILES[k].content_type;
                    r.body.assign(reinterpret_cast<const char *>(PAGE_FILES[k].data), PAGE_FILES[k].size);
                    return send(c, std::move(r));
                }
            return refuse(c, 404, "no such page");
        }
        p->api = true;
        const std::string host = header(c, "Host");
        if (!host_allowed(host, hosts_))
            return refuse(c, 403,
                          "this page is not served under the name '" + host.substr(0, 64) +
                              "' (pbweb --host NAME allows it)");
        p->route = parse_route(method, path);
        if (p->route.op == Op::NOT_FOUND || p->route.op == Op::BAD_METHOD) {
            ApiRequest req;
            req.route = p->route;
            return send(c, handle_api(pb_, req));
        }
        if (p->route.op != Op::LOGIN && !logged_in(c))
            return refuse(c, 401, "log in first");
        if (!changes_state(p->route.op))
            return MHD_YES;
        const std::string origin = header(c, "Origin");
        // Without TLS of its own, https too: a TLS front end may pass the
        // request on with its Host.
        if (host.empty() || (origin != "https://" + host && (tls_ || origin != "http://" + host)))
            return refuse(c, 403, "a change must come from this page (the Origin header does not match)");
        const std::string type = media_type(header(c, "Content-Type"));
        const bool import = p->route.op == Op::IMPORT;
        if (type != (import ? "multipart/form-data" : "application/json"))
            return refuse(c, 415,
                          import ? "an import must be sent as multipart/form-data"
                                 : "the body must be application/json");
        const size_t cap = import ? kImportCap + 64 * kKiB : kJsonCap;  // room for the form's own lines
        const std::string length = header(c, "Content-Length");
        if (!length.empty() && std::strtoull(length.c_str(), nullptr, 10) > cap)
            return refuse(c, 413, import ? "the file is larger than 1 MiB" : "the body is too large");
        if (import && !(p->form = MHD_create_post_processor(c, 16 * kKiB, on_form_field, p)))
            return refuse(c, 400, "the import form could not be read");
        return MHD_YES;
    }

    if (*upload_size > 0) {
        // A body refused part-way is read to its end (up to a limit) before
        // the answer, so that the client is not reset while still sending.
        if (p->refusal.status == 0) {
            if (p->form) {
                if (MHD_post_process(p->form, upload, *upload_size) != MHD_YES || p->file_too_big)
                    p->refusal =
                        p->file_too_big
                            ? error_response(413, PB_RCODE_ARGSERR, "the file is larger than 1 MiB")
                            : error_response(400, PB_RCODE_ARGSERR, "the import form could not be read");
            } else if (p->body.size() + *upload_size > kJsonCap) {
                p->refusal = error_response(413, PB_RCODE_ARGSERR, "the body is too large");
            } else {
                p->body.append(upload, *upload_size);
            }
        } else {
            p->discarded += *upload_size;
        }
        const bool enough = p->discarded > kDiscardMax;
        *upload_size = 0;
        return enough ? send(c, p->refusal) : MHD_YES;
    }

    // The whole request is in.
    if (p->refusal.status != 0)
        return send(c, p->refusal);
    if (p->route.op == Op::IMPORT && !p->got_file)
        return refuse(c, 400, "the import form has no field \"file\"");
    if (p->route.op == Op::LOGIN)
        return send(c, login(c, p->body));
    if (p->route.op == Op::LOGOUT) {
        if (auth_)
            auth_->logout(MHD_lookup_connection_value(c, MHD_COOKIE_KIND, kCookie));
        return send(
            c, Response{200, "application/json", ok_body(), {{"Set-Cookie", cookie("", "; Max-Age=0")}}});
    }
    ApiRequest req;
    req.route = p->route;
    req.body = std::move(p->body);
    req.login = auth_ != nullptr;
    if (const char *q = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "q"))
        req.search = q;
    if (const char *idx = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "index"))
        req.index_list = idx, req.has_index_list = true;
    if (const char *f = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "format"))
        req.format = f;
    for (auto [key, field] : {std::pair{"name", &req.name}, {"number", &req.number}, {"email", &req.email}})
        if (const char *v = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, key))
            *field = v;
    if (const char *cc = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "country"))
        req.country = cc;
    else if (!country_.empty())
        req.country = country_;
    return send(c, handle_api(pb_, req));
}

}  // namespace pbweb
