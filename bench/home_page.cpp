#include "bench/home_page.h"

#include "common/guards.h"
#include "home/accounts.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>

namespace {

constexpr uint16_t port = 18480;
constexpr size_t rounds = 199; // with the first answer 200, as many as may be asked at once

double milliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1000 + static_cast<double>(now.tv_nsec) / 1e6;
}

std::string new_session(const std::string &database_path)
{
    database db;
    std::string why;
    if (!open_database(&db, database_path, {}, &why))
        return "";
    account who;
    who.name = "bench";
    who.kind = kind_parent;
    store_account(&db, who, time(nullptr));
    find_account(&db, who.name, &who);
    std::string secret = begin_session(&db, who.id, time(nullptr));
    close_database(&db);
    return secret;
}

pid_t start_program(const std::string &directory, const std::string &database)
{
    std::string settings = directory + "/bench.json";
    FILE *file = fopen(settings.c_str(), "we");
    if (!file)
        return -1;
    fprintf(file, R"({"database":"%s","runtime_dir":"%s","request_socket":"%s/none","listen":"127.0.0.1","port":%u})",
            database.c_str(), directory.c_str(), directory.c_str(), port);
    fclose(file);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execl(HOME_PROGRAM, HOME_PROGRAM, "--settings", settings.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

int connected()
{
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return fd;
    close(fd);
    return -1;
}

// The bytes of the answer's body, 0 when it is not 200.
size_t ask(int fd, const std::string &path, const std::string &secret)
{
    std::string question = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                           "\r\nCookie: appident_session=" + secret + "\r\n\r\n";
    if (send(fd, question.data(), question.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(question.size()))
        return 0;
    std::string answer;
    char piece[65536];
    for (size_t whole = SIZE_MAX; answer.size() < whole;) {
        ssize_t got = recv(fd, piece, sizeof(piece), 0);
        if (got <= 0)
            return 0;
        answer.append(piece, static_cast<size_t>(got));
        size_t head = answer.find("\r\n\r\n"), length = answer.find("Content-Length: ");
        if (whole == SIZE_MAX && head != std::string::npos && length < head)
            whole = head + 4 + strtoul(answer.c_str() + length + strlen("Content-Length: "), nullptr, 10);
    }
    return answer.compare(0, 12, "HTTP/1.1 200") == 0 ? answer.size() : 0;
}

double resident_megabytes(pid_t process)
{
    FILE *file = fopen(("/proc/" + std::to_string(process) + "/status").c_str(), "re");
    char line[200];
    double kilobytes = 0;
    while (file && fgets(line, sizeof(line), file))
        if (strncmp(line, "VmRSS:", 6) == 0)
            kilobytes = atof(line + 6);
    if (file)
        fclose(file);
    return kilobytes / 1000;
}

} // namespace

bool measure_page(const std::string &directory, const std::string &database, const std::string &day)
{
    constexpr double patience_ms = 20000;
    std::string secret = new_session(database), path = "/api/v1/timeline?day=" + day;
    double began = milliseconds();
    pid_t program = start_program(directory, database);
    int fd = -1;
    while ((fd = connected()) < 0 && milliseconds() - began < patience_ms)
        usleep(500);
    fd_guard held(fd);
    size_t bytes = fd >= 0 ? ask(fd, path, secret) : 0;
    printf("from start to the first answer           %.0f ms\n", milliseconds() - began);
    std::vector<double> times;
    for (size_t i = 0; i < rounds && bytes > 0; ++i) {
        double asked = milliseconds();
        bytes = ask(fd, path, secret);
        times.push_back(milliseconds() - asked);
    }
    if (bytes > 0) {
        std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
        printf("a day's timeline to its last byte        %.2f ms, %zu bytes\n", times[rounds / 2], bytes);
        printf("resident after 200 requests              %.1f MB\n", resident_megabytes(program));
    }
    kill(program, SIGTERM);
    waitpid(program, nullptr, 0);
    return bytes > 0;
}
