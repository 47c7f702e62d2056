/* pbweb_client.h - pbweb started on a free loopback port, and HTTP/1.1
 * requests to it, one connection each: for pbweb's API test and the web
 * benchmark. Every call blocks; any thread may make requests. */
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

// One request on its own connection. Host, "Connection: close" and
// Content-Length are sent unless `headers` name them; a header given empty
// is left out.
inline Answer request(int port, const std::string &method, const std::string &path,
                      const std::string &body = "", Headers headers = {})
{
    headers.emplace("Host", "127.0.0.1:" + std::to_string(port));
    headers.emplace("Connection", "close");
    headers.emplace("Content-Length", std::to_string(body.size()));
    std::string req = method + " " + path + " HTTP/1.1\r\n";
    for (const auto &[name, value] : headers)
        if (!value.empty())
            req += name + ": " + value + "\r\n";
    req += "\r\n" + body;

    std::string raw;
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0) {
        // The server may answer and close before taking a refused body.
        (void)send(fd, req.data(), req.size(), MSG_NOSIGNAL);
        char buf[16384];
        for (ssize_t n; (n = recv(fd, buf, sizeof buf, 0)) > 0;)
            raw.append(buf, static_cast<size_t>(n));
    }
    close(fd);

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

}  // namespace pbweb_client

#endif
