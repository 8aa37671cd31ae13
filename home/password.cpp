#include "home/password.h"

#include "home/secrets.h"

#include <crypt.h>
#include <stdio.h>
#include <sys/random.h>
#include <termios.h>
#include <unistd.h>

#include <memory>

namespace {

constexpr const char *kind_and_cost = "$2b$10$";

std::string crypted(const std::string &password, const std::string &setting)
{
    auto work = std::make_unique<crypt_data>();
    const char *hash = crypt_r(password.c_str(), setting.c_str(), work.get());
    // Failure is told by a text that cannot be a hash, or by null.
    return hash && hash[0] == '$' ? hash : "";
}

// 128 random bits as bcrypt writes them; of the last character it uses two bits only.
std::string random_setting()
{
    constexpr size_t characters = 22;
    constexpr char digits[] = "./ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", last[] = ".Oeu";
    unsigned char drawn[characters];
    if (getrandom(drawn, sizeof(drawn), 0) != static_cast<ssize_t>(sizeof(drawn)))
        return "";
    std::string setting = kind_and_cost;
    for (size_t i = 0; i + 1 < characters; ++i)
        setting += digits[drawn[i] % 64];
    return setting + last[drawn[characters - 1] % 4];
}

// One line without its line feed, or as much of it as is too long for a password. False at the end of the input.
bool read_line(std::string *line)
{
    int c = EOF;
    line->clear();
    while ((c = getchar()) != EOF && c != '\n' && line->size() <= password_most)
        line->push_back(static_cast<char>(c));
    return c == '\n' || !line->empty();
}

bool ask_unseen(const char *question, std::string *answer)
{
    termios shown, unseen;
    fputs(question, stderr);
    if (tcgetattr(STDIN_FILENO, &shown) != 0)
        return false;
    unseen = shown;
    unseen.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &unseen);
    bool read = read_line(answer);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    fputs("\n", stderr);
    return read;
}

} // namespace

const char *password_fault(const std::string &password)
{
    if (password.size() < password_least)
        return "a password has 8 characters at least";
    if (password.size() > password_most)
        return "a password has 72 bytes at most";
    return password.find('\0') != std::string::npos ? "a password has no NUL" : nullptr;
}

std::string hash_password(const std::string &password)
{
    std::string setting = random_setting();
    return setting.empty() ? "" : crypted(password, setting);
}

bool check_password(const std::string &password, const std::string &hash)
{
    constexpr const char *nobody = "$2b$10$......................";
    std::string own = crypted(password, hash.empty() ? nobody : hash);
    return !hash.empty() && !own.empty() && same_secret(own, hash);
}

bool ask_password(std::string *password)
{
    std::string again;
    bool terminal = isatty(STDIN_FILENO);
    bool read = terminal ? ask_unseen("Password: ", password) : read_line(password);
    const char *fault = read ? password_fault(*password) : "no password was given";
    if (!fault && terminal && (!ask_unseen("The same again: ", &again) || again != *password))
        fault = "the two are not the same";
    if (fault)
        fprintf(stderr, "appident-home: %s\n", fault);
    return !fault;
}
