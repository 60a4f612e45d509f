#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Conversions.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

namespace qv::review {

namespace {

constexpr std::int64_t kAllPermissions = 07777;
constexpr std::int64_t kSpecialBits = 07000;
constexpr std::int64_t kAllIDBits = std::numeric_limits<std::uint32_t>::max();

// Permissions that are in use, without the set-ID bits and the sticky bit.
constexpr std::array kUsualModes = std::to_array<std::int64_t>(
    {0000, 0400, 0440, 0444, 0500, 0550, 0555, 0600, 0640, 0644, 0660, 0664, 0666, 0700, 0710,
     0711, 0740, 0744, 0750, 0751, 0754, 0755, 0760, 0764, 0770, 0771, 0774, 0775, 0777});

bool isUsual(std::int64_t mode) {
    return mode >= 0 && mode <= kAllPermissions &&
           std::ranges::binary_search(kUsualModes, mode & ~kSpecialBits);
}

// The number whose decimal digits are read as octal ones; none if it has others.
std::optional<std::int64_t> asOctalDigits(std::int64_t number) {
    std::int64_t value = 0;
    for (std::int64_t place = 1; number > 0; number /= 10, place *= 8) {
        if (number % 10 > 7 || place > kAllPermissions) {
            return std::nullopt;
        }
        value += number % 10 * place;
    }
    return value;
}

// The permissions as ls shows them, "rwxr-x---".
std::string permissions(std::int64_t mode) {
    constexpr std::string_view kLetters = "rwxrwxrwx";
    const auto has = [&](std::size_t bit) {
        return (static_cast<std::uint64_t>(mode) >> bit & 1U) != 0;
    };
    std::string text(kLetters);
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = has(text.size() - 1 - i) ? kLetters[i] : '-';
    }
    // The special bits stand where the three run bits do: set-user-ID, set-group-ID, sticky.
    constexpr std::string_view kSpecial = "sst";
    constexpr std::string_view kSpecialAlone = "SST";
    for (std::size_t i = 0; i < kSpecial.size(); ++i) {
        char& run = text[3 * i + 2];
        if (has(text.size() + 2 - i)) {
            run = run == 'x' ? kSpecial[i] : kSpecialAlone[i];
        }
    }
    return text;
}

std::string shownNumber(const Value& value) {
    return value.is(Value::Kind::string) ? inQuotes(value.asString())
                                         : std::to_string(integerValue(&value));
}

void reviewMode(const ReviewedStep& step, const Field& field, const Value& value,
                Findings& findings) {
    const std::optional<std::int64_t> number = wholeNumber(value);
    if (!number) {
        const std::int32_t taken = intValue(&value);
        findings.add(
            Check::symbolicMode, step.at(field),
            {fmt::format("the mode {} is not a number and is read as {}{}", shownNumber(value),
                         taken, taken == 0 ? ", which takes all permissions away" : ""),
             "write the permission bits as a decimal number: 493 is 0755 in octal"});
        return;
    }
    const bool hasZero = value.is(Value::Kind::string) && value.asString().size() > 1 &&
                         value.asString().front() == '0';
    const std::optional<std::int64_t> meant = asOctalDigits(*number);
    if (meant && (hasZero || (!isUsual(*number) && *number > 07 && isUsual(*meant)))) {
        findings.add(
            Check::decimalMode, step.at(field),
            {fmt::format("the mode {} is read as a decimal number, which is {:04o} in octal "
                         "and gives {}",
                         shownNumber(value), *number, permissions(*number)),
             fmt::format("write {}, which is {:04o} in octal", *meant, *meant)});
    } else if (*number < 0 || *number > kAllPermissions) {
        findings.add(Check::modeRange, step.at(field),
                     {fmt::format("the mode {} has other bits than the permissions 0 to 4095",
                                  shownNumber(value)),
                      fmt::format("write {}, the permissions in it",
                                  static_cast<std::uint64_t>(*number) & kAllPermissions)});
    }
}

std::string mendOfOwner(const ReviewedStep& step, const Field& field, const std::string& name) {
    const bool isUser = field.kind == FieldKind::userID;
    if (step.options->asksMachine && isUser) {
        if (const auto user = userRecord(name)) {
            return fmt::format("write {}, the ID of {} on this machine", user->user,
                               inQuotes(name));
        }
    }
    return fmt::format("write the ID, which `getent {} NAME` shows", isUser ? "passwd" : "group");
}

void reviewOwner(const ReviewedStep& step, const Field& field, const Value& value,
                 Findings& findings) {
    const std::optional<std::int64_t> number = wholeNumber(value);
    if (!number && value.is(Value::Kind::string)) {
        const std::int32_t taken = intValue(&value);
        findings.add(
            Check::ownerName, step.at(field),
            {fmt::format("the {} {} is not a number and is read as {}{}", field.name,
                         inQuotes(value.asString()), taken, taken == 0 ? ", which is root's" : ""),
             mendOfOwner(step, field, std::string(value.asString()))});
        return;
    }
    const auto taken = static_cast<std::uint32_t>(intValue(&value));
    // An ID with all bits set leaves the owner alone.
    if (number && *number != taken && !(*number == -1 && taken == kAllIDBits)) {
        findings.add(Check::numberRange, step.at(field),
                     {fmt::format("the {} {} is read as {}", field.name, shownNumber(value), taken),
                      fmt::format("write a number from 0 to {}, or {} to leave the {} alone",
                                  kAllIDBits - 1, kAllIDBits, field.name)});
    }
}

void reviewFlag(const ReviewedStep& step, const Field& field, const Value& value,
                Findings& findings) {
    static constexpr std::array<std::string_view, 10> kWords = {
        "yes", "no", "true", "false", "y", "n", "t", "f", "on", "off"};
    if (!value.is(Value::Kind::string) || wholeNumber(value)) {
        return;
    }
    const std::string_view text = value.asString();
    const bool isWord = std::ranges::any_of(kWords, [&](std::string_view word) {
        return std::ranges::equal(word, text, [](unsigned char left, unsigned char right) {
            return left == std::tolower(right);
        });
    });
    const bool isOn = isWord && (text.front() == 'o' || text.front() == 'O') && text.size() == 2;
    if (!isWord || isOn) {
        findings.add(Check::unclearFlag, step.at(field),
                     {fmt::format("{} for \"{}\" is read as {}", inQuotes(text), field.name,
                                  boolValue(text) ? "yes" : "no"),
                      "write YES or NO"});
    }
}

void reviewProcess(const ReviewedStep& step, const Field& field, std::int64_t number,
                   Findings& findings) {
    if (number <= 0) {
        findings.add(Check::invalidProcess, step.at(field),
                     {fmt::format("no process has the ID {}, so the step does not wait", number),
                      "give the ID of the process"});
    } else if (!step.options->isRecorded) {
        findings.add(
            Check::literalProcess, step.at(field),
            {fmt::format("the process {} is another one, or none, at another time", number),
             "let a program that knows the process record the step"});
    }
}

void reviewBehaviour(const ReviewedStep& step, const Field& field, std::int64_t number,
                     Findings& findings) {
    constexpr std::int64_t kNoRetry = 0x100;
    if ((number & ~(kNoRetry | 1)) != 0) {
        findings.add(Check::oddErrorBehaviour, step.at(field),
                     {fmt::format("the error behaviour {} lets the script go on after failures, as "
                                  "any number but 0 does",
                                  number),
                      "write 0 to stop at a failure, or 1 to go on; 256 more keeps a failed "
                      "operation from being tried again with privilege"});
    }
}

void reviewPlainNumber(const ReviewedStep& step, const Field& field, const Value& value,
                       Findings& findings) {
    const std::optional<std::int64_t> number = wholeNumber(value);
    const std::int32_t taken = intValue(&value);
    const bool isFlag = field.kind == FieldKind::adminFlag;
    if (!number && !(isFlag && value.is(Value::Kind::boolean))) {
        findings.add(Check::notANumber, step.at(field),
                     {fmt::format("the {} is {} and is read as {}", field.name,
                                  value.is(Value::Kind::string)
                                      ? inQuotes(value.asString()) + ", not a number,"
                                      : std::string("not a whole number"),
                                  taken),
                      "write a whole number"});
    } else if (number && *number != taken && *number != static_cast<std::uint32_t>(taken)) {
        findings.add(Check::numberRange, step.at(field),
                     {fmt::format("the {} {} is read as {}", field.name, shownNumber(value), taken),
                      "write a number of at most 31 bits"});
    } else if (isFlag && number && *number != 0 && (*number & 0xFF) == 0) {
        findings.add(
            Check::adminFlagBits, step.at(field),
            {fmt::format("{} is read as no: only the low 8 bits count", *number), "write 1 or 0"});
    } else if (field.kind == FieldKind::processID && number) {
        reviewProcess(step, field, *number, findings);
    } else if (field.kind == FieldKind::errorBehaviour && number) {
        reviewBehaviour(step, field, *number, findings);
    }
}

} // namespace

void reviewNumber(const ReviewedStep& step, const Field& field, const Value& value,
                  Findings& findings) {
    switch (field.kind) {
    case FieldKind::mode:
        return reviewMode(step, field, value, findings);
    case FieldKind::userID:
    case FieldKind::groupID:
        return reviewOwner(step, field, value, findings);
    case FieldKind::flag:
        return reviewFlag(step, field, value, findings);
    default:
        return reviewPlainNumber(step, field, value, findings);
    }
}

// A user who may list a folder has to search it, too, or sees names and nothing else.
void reviewModes(const ReviewedStep& step, Findings& findings) {
    const Field* field = step.field("mode");
    const Value* value = field == nullptr ? nullptr : step.value(*field);
    const std::optional<std::int64_t> mode = value == nullptr ? std::nullopt : wholeNumber(*value);
    if (!mode || !isUsual(*mode) || !step.isSet("recursive")) {
        return;
    }
    const auto bits = static_cast<std::uint64_t>(*mode);
    const std::uint64_t readable = bits & 0444U;
    if (const std::uint64_t locked = readable & ~(bits << 2U); locked != 0) {
        findings.add(
            Check::recursiveWithoutSearch, step.at(*field),
            {fmt::format("the mode {:04o} for a folder and all in it lets users list the folders, "
                         "but not enter them",
                         bits),
             "run /bin/chmod with --recursive and u=rwX,go=rX, or change folders and files apart"});
    }
}

} // namespace qv::review
