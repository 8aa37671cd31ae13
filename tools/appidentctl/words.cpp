// What a person wrote for a device, an app or a class.
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/device_text.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/table.h"

#include <algorithm>
#include <arpa/inet.h>
#include <ctype.h>

namespace {

// Letters of ASCII in lower case; bytes of other letters as they are.
std::string folded(const std::string &text)
{
    std::string lower = text;
    for (char &c : lower)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return lower;
}

// How many characters must be changed, put in or left out to make one text of the other.
size_t distance(const std::string &one, const std::string &other)
{
    std::vector<size_t> row(other.size() + 1);
    for (size_t j = 0; j <= other.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= one.size(); i++) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= other.size(); j++) {
            size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (one[i - 1] != other[j - 1])});
            diagonal = above;
        }
    }
    return row[other.size()];
}

// A name and what it stands for: the index in its list. The label is what a person is offered, where names alone may be alike.
struct named {
    std::string name;
    size_t place;
    std::string label;
};

// The names that a person may have meant: the one that is equal but for case; else those that begin with the words; else those
// that hold them.
std::vector<named> matches(const std::vector<named> &all, const std::string &words)
{
    std::string wanted = folded(words);
    std::vector<named> equal, begin, within;
    for (const named &one : all) {
        size_t at = wanted.empty() ? std::string::npos : folded(one.name).find(wanted);
        if (at == std::string::npos)
            continue;
        if (one.name.size() == words.size())
            equal.push_back(one);
        (at == 0 ? begin : within).push_back(one);
    }
    return !equal.empty() ? equal : !begin.empty() ? begin : within;
}

// Names to offer where none matches: with a third of their characters wrong at most.
std::vector<named> near(const std::vector<named> &all, const std::string &words)
{
    std::vector<named> found;
    for (const named &one : all)
        if (!one.name.empty() && distance(folded(one.name), folded(words)) * 3 <= std::max(one.name.size(), words.size()))
            found.push_back(one);
    return found;
}

// The place of the one that is meant, or all.size() after saying why there is none.
size_t pick(const command_line &line, const char *what, const std::vector<named> &all, const std::string &words)
{
    constexpr size_t most_offered = 8;
    std::vector<named> found = matches(all, words);
    if (found.size() == 1)
        return found[0].place;
    bool ambiguous = !found.empty();
    if (!ambiguous)
        found = near(all, words);
    std::string offered;
    for (size_t i = 0; i < found.size() && i < most_offered; i++)
        offered += (i ? ", " : "") + printable(found[i].label);
    if (found.size() > most_offered)
        offered += ", ...";
    if (ambiguous)
        usage_error(line, "'%s' may be any of: %s", words.c_str(), offered.c_str());
    else if (!offered.empty())
        usage_error(line, "no %s is called '%s'; do you mean: %s?", what, words.c_str(), offered.c_str());
    else
        usage_error(line, "no %s is called '%s'", what, words.c_str());
    return all.size();
}

// An IPv4 or IPv6 address in its usual form; empty for what is none.
std::string address_text(const std::string &words)
{
    in6_addr address;
    char text[INET6_ADDRSTRLEN] = "";
    for (int family : {AF_INET, AF_INET6})
        if (inet_pton(family, words.c_str(), &address) == 1)
            inet_ntop(family, &address, text, sizeof(text));
    return text;
}

bool is_number(const std::string &words)
{
    return !words.empty() && std::all_of(words.begin(), words.end(), [](unsigned char c) { return isdigit(c); });
}

} // namespace

std::string device_from_words(const command_line &line, const household &known, const std::string &words)
{
    std::string mac = device_text(words);
    if (!mac.empty())
        return mac;
    std::string address = address_text(words);
    std::vector<named> all;
    for (size_t i = 0; i < known.devices.size(); i++) {
        const known_device &one = known.devices[i];
        if (!address.empty() && address_text(one.address) == address)
            return one.mac;
        std::string name = device_name(known, one.mac);
        all.push_back({name, i, name + " (" + one.mac + ")"});
    }
    if (!address.empty()) {
        usage_error(line, "no device has the address %s; 'appidentctl devices' lists them", words.c_str());
        return "";
    }
    size_t place = pick(line, "device", all, words);
    return place < all.size() ? known.devices[place].mac : "";
}

u32 app_from_words(const command_line &line, const household &known, const std::string &words)
{
    u32 number = 0;
    if (is_number(words)) {
        if (!read_number(words, 1, 0xffff, &number)) {
            usage_error(line, "'%s' is no app id from 1 to 65535", words.c_str());
            return 0;
        }
        if (known.apps.empty() || known.apps.count(number))
            return number;
        usage_error(line, "the catalogue holds no app %u; 'appidentctl catalogue' lists them", number);
        return 0;
    }
    std::vector<named> all;
    std::vector<u32> ids;
    for (const auto &one : known.apps) {
        all.push_back({one.second.name, ids.size(), one.second.name});
        ids.push_back(one.first);
    }
    size_t place = pick(line, "app", all, words);
    return place < ids.size() ? ids[place] : 0;
}

u32 class_from_words(const command_line &line, const std::string &words)
{
    constexpr u32 most = sizeof(limit_classes) / sizeof(*limit_classes);
    u32 number = 0;
    if (is_number(words)) {
        if (!read_number(words, 1, most, &number))
            usage_error(line, "class %s is none of 1 to %u", words.c_str(), most);
        return number;
    }
    std::vector<named> all;
    for (const limit_class &one : limit_classes)
        all.push_back({one.name, one.class_type - 1, one.name});
    size_t place = pick(line, "class", all, words);
    return place < most ? static_cast<u32>(place) + 1 : 0;
}
