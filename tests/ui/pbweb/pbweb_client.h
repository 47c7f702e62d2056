/* pbweb_client.h - pbweb started on a free loopback port, and HTTP/1.1
 * requests to it, one connection each, from a loopback address of the
 * caller's choice: for pbweb's API test and the web benchmark. The request
 * text and the answer's parser serve a test's own transport (TLS) too.
 * Every call blocks; any thread may make requests. */
#ifndef PBWEB_CLIENT_H
#define PBWEB_CLIENT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

extern char **environ;

namespace pbweb_client {

using Headers = std::map<std::string, std::string>;

struct Answer {
    int status = 0;   // 0: no HTTP answer came
    Headers headers;  // names in lower case
    std::string body;
};

// Starts pbweb (argv[0] its path, listening on "127.0.0.1:0") and reads the
// address it prints first; its port there, 0 when it printed none.
inline pid_t start(std::vector<std::string> argv, int *port)
{
    std::vector<char *> args;
    for (std::string &a : argv)
        args.push_back(a.data());
    args.push_back(nullptr);
    int fds[2];
    *port = 0;
    if (pipe(fds) != 0)
        return -1;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    posix_spawn_file_actions_addclose(&fa, fds[0]);
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &fa, nullptr, args.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    std::string line;
    for (char ch; read(fds[0], &ch, 1) == 1 && ch != '\n';)
        line += ch;
    close(fds[0]);
    const size_t colon = line.rfind(':');
    if (colon != std::string::npos)
        *port = std::atoi(line.c_str() + colon + 1);
    return pid;
}

// The text of one request. Host, "Connection: close" and Content-Length
// are sent unless `headers` name them; a header given empty is left out.
inline std::string request_text(int port, const std::string &method, const std::string &path,
                                const std::string &body, Headers headers)
{
    headers.emplace("Host", "127.0.0.1:" + std::to_string(port));
    headers.emplace("Connection", "close");
    headers.emplace("Content-Length", std::to_string(body.size()));
    std::string req = method + " " + path + " HTTP/1.1\r\n";
    for (const auto &[name, value] : headers)
        if (!value.empty())
            req += name + ": " + value + "\r\n";
    return req + "\r\n" + body;
}

// A connected socket to 127.0.0.1:port, or -1; from the loopback address
// `from` (any of 127.0.0.0/8) when given, else from the one the kernel
// picks.
inline int connect_from(const char *from, int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in src{}, to{};
    src.sin_family = to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool bound = !from || (inet_pton(AF_INET, from, &src.sin_addr) == 1 &&
                                 bind(fd, reinterpret_cast<sockaddr *>(&src), sizeof src) == 0);
    if (fd >= 0 && bound && connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

// The answer as it came off the wire; status 0 when it is no HTTP answer.
inline Answer parse_answer(const std::string &raw)
{
    Answer a;
    const size_t end = raw.find("\r\n\r\n");
    if (raw.compare(0, 9, "HTTP/1.1 ") != 0 || end == std::string::npos)
        return a;
    a.status = std::atoi(raw.c_str() + 9);
    for (size_t at = raw.find("\r\n") + 2; at < end;) {
        const size_t eol = raw.find("\r\n", at), colon = raw.find(':', at);
        std::string name = raw.substr(at, colon - at);
        for (char &c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        a.headers[name] = raw.substr(colon + 2, eol - colon - 2);
        at = eol + 2;
    }
    a.body = raw.substr(end + 4);
    return a;
}

// One request on its own connection.
inline Answer request(int port, const std::string &method, const std::string &path,
                      const std::string &body = "", Headers headers = {}, const char *from = nullptr)
{
    const std::string req = request_text(port, method, path, body, std::move(headers));
    std::string raw;
    const int fd = connect_from(from, port);
    if (fd >= 0) {
        // The server may answer and close before taking a refused body.
        (void)send(fd, req.data(), req.size(), MSG_NOSIGNAL);
        char buf[16384];
        for (ssize_t n; (n = recv(fd, buf, sizeof buf, 0)) > 0;)
            raw.append(buf, static_cast<size_t>(n));
        close(fd);
    }
    return parse_answer(raw);
}

}  // namespace pbweb_client

#endif
