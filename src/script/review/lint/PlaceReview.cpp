#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/URL.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qv::review {

namespace {

constexpr std::string_view kFileScheme = "file:";
constexpr std::string_view kPlaceMend = "write a file URL such as \"file:///opt/app\"";

constexpr std::array kSystemFolders = std::to_array<std::string_view>(
    {"/",        "/bin",           "/boot",          "/dev",      "/etc",       "/home", "/lib",
     "/lib32",   "/lib64",         "/media",         "/mnt",      "/opt",       "/proc", "/root",
     "/run",     "/sbin",          "/srv",           "/sys",      "/tmp",       "/usr",  "/usr/bin",
     "/usr/lib", "/usr/lib64",     "/usr/local",     "/usr/sbin", "/usr/share", "/var",  "/var/lib",
     "/var/log", "/usr/local/bin", "/usr/local/lib", "/var/cache"});

// The file URL of an absolute path, by its text alone.
std::string fileURL(std::string_view path) {
    constexpr std::string_view kPlain = "/-._~!$&'()*+,=:@";
    std::string url = "file://";
    for (const char c : path) {
        if (isLetterOrDigit(c) || kPlain.find(c) != std::string_view::npos) {
            url += c;
        } else {
            url += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    return url;
}

Explanation explanationOfPath(const Field& field, std::string_view text) {
    std::string reason = fmt::format("the {} {} is a path, not a URL, so the step fails",
                                     field.name, inQuotes(text));
    if (text.starts_with('/')) {
        return {std::move(reason), fmt::format("write {}", inQuotes(fileURL(text)))};
    }
    if (text.starts_with('~')) {
        reason += "; \"~\" is not a home folder here";
    }
    return {std::move(reason), fmt::format("{}, from the root on", kPlaceMend)};
}

bool looksLikePath(std::string_view text) {
    const std::size_t colon = text.find(':');
    return !text.empty() && (colon == std::string_view::npos || text.find('/') < colon);
}

// The first byte that a URL cannot hold.
std::size_t placeOfFault(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '%' && i + 2 < text.size() &&
                              hexDigitValue(text[i + 1]) >= 0 && hexDigitValue(text[i + 2]) >= 0;
        if (text[i] <= ' ' || text[i] == '\x7F' || (text[i] == '%' && !isEscape) ||
            std::string_view("\"<>\\^`{|}").find(text[i]) != std::string_view::npos) {
            return i;
        }
    }
    return 0;
}

void reviewUnparsed(const ReviewedStep& step, const Field& field, std::string_view text,
                    Findings& findings) {
    if (looksLikePath(text)) {
        findings.add(Check::plainPath, step.at(field), explanationOfPath(field, text));
        return;
    }
    Place place = step.at(field);
    place.offset = placeOfFault(text);
    std::string mend(kPlaceMend);
    if (text.starts_with("file:///")) {
        mend = fmt::format("write {}", inQuotes(fileURL(percentDecoded(text.substr(7)))));
    }
    findings.add(
        Check::badURL, place,
        {fmt::format("the {} {} is not a URL: blanks and other characters that a URL cannot "
                     "hold are written as % and two hexadecimal digits",
                     field.name, inQuotes(text)),
         std::move(mend)});
}

void reviewFileURL(const ReviewedStep& step, const Field& field, const URL& url,
                   Findings& findings) {
    const std::string_view text = url.absoluteString();
    std::string_view rest = text.substr(kFileScheme.size());
    const std::string path = url.path().value_or("");
    const auto add = [&](Check check, std::string reason, std::string mend) {
        findings.add(check, step.at(field), {std::move(reason), std::move(mend)});
    };
    std::string_view host;
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        host = rest.substr(0, rest.find_first_of("/?#"));
    }
    if (!host.empty() && host != "localhost") {
        add(Check::urlHost,
            fmt::format("{} in the URL of the {} is read as the name of a host, and the path as {}",
                        inQuotes(host), field.name, inQuotes(path)),
            fmt::format("write three slashes: {}", inQuotes(fileURL("/" + std::string(rest)))));
    } else if (const std::size_t mark = text.find_first_of("?#"); mark != std::string_view::npos) {
        add(Check::urlFragment,
            fmt::format("the path of the {} ends before \"{}\" and is {}", field.name, text[mark],
                        inQuotes(path)),
            fmt::format("write {} for that character", text[mark] == '?' ? "%3F" : "%23"));
    } else if (!path.starts_with('/') || path.find('\0') != std::string::npos ||
               text.find("%2f") != std::string_view::npos ||
               text.find("%2F") != std::string_view::npos) {
        add(Check::badURL,
            fmt::format("the URL {} of the {} is not that of an absolute path", inQuotes(text),
                        field.name),
            std::string(kPlaceMend));
    }
}

bool takesAll(const ReviewedStep& step, const Field& field) {
    switch (step.operation->effect) {
    case Effect::removes:
        return true;
    case Effect::changes:
        return step.isSet("recursive") ||
               (step.is(OperationCode::moveItemFromURL) && field.name == "from") ||
               (step.is(OperationCode::replaceItemAtURL) && field.name == "old item");
    default:
        return false;
    }
}

} // namespace

std::optional<std::string> lexicalPath(std::string_view path) {
    if (!path.starts_with('/')) {
        return std::nullopt;
    }
    std::string result;
    result.reserve(path.size());
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string_view component = path.substr(begin, end - begin);
        if (component == "..") {
            return std::nullopt;
        }
        if (!component.empty() && component != ".") {
            result += '/';
            result += component;
        }
        begin = end + 1;
    }
    return result.empty() ? "/" : result;
}

std::optional<std::string> pathOfItem(const Value* url) {
    if (url == nullptr || !url->is(Value::Kind::string)) {
        return std::nullopt;
    }
    const auto parsed = URL::URLWithString(url->asString());
    const auto path = parsed && parsed->isFileURL() ? parsed->path() : std::nullopt;
    return path ? lexicalPath(*path) : std::nullopt;
}

void reviewPlace(const ReviewedStep& step, const Field& field, const Value& value,
                 Findings& findings) {
    const std::string_view text = value.asString();
    const std::optional<URL> url = URL::URLWithString(text);
    if (!url || text.empty()) {
        reviewUnparsed(step, field, text, findings);
    } else if (url->scheme().empty()) {
        findings.add(Check::plainPath, step.at(field), explanationOfPath(field, text));
    } else if (!url->isFileURL()) {
        findings.add(Check::otherScheme, step.at(field),
                     {fmt::format("the {} {} is not in a file system", field.name, inQuotes(text)),
                      std::string(kPlaceMend)});
    } else {
        reviewFileURL(step, field, *url, findings);
        const std::optional<std::string>& path = step.path(field);
        if (path && std::ranges::find(kSystemFolders, *path) != kSystemFolders.end() &&
            takesAll(step, field)) {
            findings.add(Check::systemFolder, step.at(field),
                         {fmt::format("the step takes effect on {} with all that is in it, which "
                                      "belongs to the system",
                                      inQuotes(*path)),
                          "name what is the application's own in it"});
        }
    }
}

} // namespace qv::review
