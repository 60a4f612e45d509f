#include "platform/system/ParameterSources.h"

#include "platform/system/KernelText.h"
#include "platform/system/ReleaseFile.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <span>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv::source {

namespace {

constexpr std::string_view kProcessors = "sys/devices/system/cpu/cpu";
constexpr unsigned kMostProcessors = 1U << 16U;
constexpr int kMostCaches = 16;

// A truth is the number 1 or 0.
ParameterFinding found(std::optional<std::uint64_t> number) {
    return number ? ParameterFinding(ParameterNumber{.magnitude = *number}) : ParameterFinding();
}

ParameterFinding found(std::optional<std::string> text) {
    return text ? ParameterFinding(std::move(*text)) : ParameterFinding();
}

// The largest number, where a file tells of more than there can be.
std::uint64_t times(std::uint64_t number, std::uint64_t factor) {
    constexpr auto kLargest = std::numeric_limits<std::uint64_t>::max();
    return factor != 0 && number > kLargest / factor ? kLargest : number * factor;
}

std::optional<std::string> upperCase(std::optional<std::string> text) {
    if (text) {
        std::ranges::for_each(*text, [](char& c) {
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        });
    }
    return text;
}

std::optional<std::string> processorLine(const KernelFiles& files, std::string_view key) {
    return lineIn(files, "proc/cpuinfo", key);
}

// Only x86 lists its flags under this name.
std::optional<std::string> x86Flags(const KernelFiles& files) {
    return processorLine(files, "flags");
}

bool hasFlag(std::string_view flags, std::string_view wanted) {
    while (!flags.empty()) {
        const std::string_view flag = flags.substr(0, flags.find(' '));
        if (flag == wanted) {
            return true;
        }
        flags.remove_prefix(std::min(flag.size() + 1, flags.size()));
    }
    return false;
}

std::optional<std::uint64_t> memory(const KernelFiles& files, std::string_view key) {
    const auto size = firstNumber(lineIn(files, "proc/meminfo", key));
    return size ? std::optional(times(*size, 1024)) : std::nullopt;
}

std::optional<std::uint64_t> bytesOfPage(const KernelFiles& files) {
    constexpr std::uint64_t kOfX86 = 4096;
    if (files.areThisMachines()) {
        return static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    }
    return x86Flags(files) ? std::optional(kOfX86) : std::nullopt;
}

std::optional<std::string> nameOfMachine(const KernelFiles& files) {
    struct utsname system{};
    if (files.areThisMachines()) {
        return ::uname(&system) == 0 ? std::optional<std::string>(&system.machine[0])
                                     : std::nullopt;
    }
    return files.text("proc/sys/kernel/arch");
}

bool isARM64(const KernelFiles& files) { return nameOfMachine(files) == "aarch64"; }

// The numbers of a list "0-3,8"; none for a text that is not such a list.
std::optional<std::vector<unsigned>> listed(std::string_view text) {
    std::vector<unsigned> numbers;
    const char* place = text.data();
    const char* const end = place + text.size();
    while (place != end) {
        unsigned first = 0;
        auto read = std::from_chars(place, end, first);
        unsigned last = first;
        if (read.ec == std::errc() && read.ptr != end && *read.ptr == '-') {
            read = std::from_chars(read.ptr + 1, end, last);
        }
        if (read.ec != std::errc() || last < first || last >= kMostProcessors ||
            numbers.size() + (last - first) >= kMostProcessors ||
            (read.ptr != end && *read.ptr != ',')) {
            return std::nullopt;
        }
        for (unsigned number = first; number <= last; ++number) {
            numbers.push_back(number);
        }
        place = read.ptr == end ? end : read.ptr + 1;
    }
    return numbers;
}

std::vector<unsigned> processorsIn(const KernelFiles& files, std::string_view path) {
    return listed(files.text(std::string(path)).value_or("")).value_or(std::vector<unsigned>());
}

// The number of different places of the listed processors, each told by these files of its
// topology.
std::optional<std::uint64_t> differentPlaces(const KernelFiles& files, std::string_view list,
                                             std::span<const std::string_view> names) {
    std::set<std::vector<std::uint64_t>> different;
    for (const unsigned processor : processorsIn(files, list)) {
        const std::string folder = fmt::format("{}{}/topology/", kProcessors, processor);
        std::vector<std::uint64_t> place;
        for (const std::string_view name : names) {
            if (const auto number = numberIn(files, folder + std::string(name))) {
                place.push_back(*number);
            }
        }
        if (place.size() == names.size()) {
            different.insert(std::move(place));
        }
    }
    return different.empty() ? std::nullopt : std::optional<std::uint64_t>(different.size());
}

std::optional<std::uint64_t> packagesIn(const KernelFiles& files, std::string_view list) {
    static constexpr std::array<std::string_view, 1> kNames{"physical_package_id"};
    return differentPlaces(files, list, kNames);
}

std::optional<std::uint64_t> blocksOfMemory(const KernelFiles& files) {
    const std::string folder("sys/devices/system/memory");
    const auto size = firstNumber(files.text(folder + "/block_size_bytes"), 16);
    std::uint64_t online = 0;
    for (const std::string& name : files.namesIn(folder)) {
        if (name.starts_with("memory") &&
            files.text(fmt::format("{}/{}/state", folder, name)) == "online") {
            ++online;
        }
    }
    return size && online != 0 ? std::optional(times(*size, online)) : std::nullopt;
}

std::string cacheFolder(int index) { return fmt::format("{}0/cache/index{}/", kProcessors, index); }

std::optional<double> decimal(std::string_view text) {
    double number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && std::isfinite(number) && number >= 0 ? std::optional(number)
                                                                          : std::nullopt;
}

std::optional<std::uint64_t> fastestProcessor(const KernelFiles& files) {
    constexpr double kMost = 1e9; // MHz
    const std::string content = files.read("proc/cpuinfo").value_or("");
    std::string_view rest(content);
    double fastest = 0;
    while (!rest.empty()) {
        const auto value = valueOf(takeLine(rest), "cpu MHz");
        fastest = std::max(fastest, value ? decimal(*value).value_or(0) : 0);
    }
    return fastest > 0 && fastest < kMost
               ? std::optional(static_cast<std::uint64_t>(std::llround(fastest * 1e6)))
               : std::nullopt;
}

template <typename Structure> std::string structureBytes(const Structure& structure) {
    return {reinterpret_cast<const char*>(&structure), sizeof structure};
}

} // namespace

ParameterFinding nothing(const ParameterPlaces& /*places*/, const ParameterRow& /*row*/) {
    return {};
}

ParameterFinding constant(const ParameterPlaces& /*places*/, const ParameterRow& row) {
    return found(static_cast<std::uint64_t>(row.number));
}

ParameterFinding fileText(const ParameterPlaces& places, const ParameterRow& row) {
    return found(places.files.text(std::string(row.of)));
}

ParameterFinding fileNumber(const ParameterPlaces& places, const ParameterRow& row) {
    return found(numberIn(places.files, row.of));
}

ParameterFinding systemLimit(const ParameterPlaces& places, const ParameterRow& row) {
    const long limit =
        places.files.areThisMachines() ? ::sysconf(static_cast<int>(row.number)) : -1;
    return limit < 0 ? ParameterFinding() : found(static_cast<std::uint64_t>(limit));
}

ParameterFinding releaseBuild(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const ReleaseFile release = ReleaseFile::read(places.files.root());
    const auto build = release.value("BUILD_ID");
    return found(build ? build : release.value("VERSION_ID"));
}

ParameterFinding releaseVersion(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(ReleaseFile::read(places.files.root()).value("VERSION_ID"));
}

ParameterFinding domainName(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    auto name = places.files.text("proc/sys/kernel/domainname");
    return found(name == "(none)" ? std::optional<std::string>("") : std::move(name));
}

ParameterFinding bootSession(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(upperCase(places.files.text("proc/sys/kernel/random/boot_id")));
}

ParameterFinding bootTime(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    constexpr std::string_view kKey = "btime ";
    const std::string content = places.files.read("proc/stat").value_or("");
    std::string_view rest(content);
    while (!rest.empty()) {
        std::string_view line = takeLine(rest);
        const auto seconds = line.starts_with(kKey) ? takeNumber(line) : std::nullopt;
        if (seconds) {
            return structureBytes(std::array<std::uint64_t, 2>{*seconds, 0}); // and no microseconds
        }
    }
    return {};
}

ParameterFinding processLimit(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const auto threads = numberIn(places.files, "proc/sys/kernel/threads-max");
    const auto identifiers = numberIn(places.files, "proc/sys/kernel/pid_max");
    return threads && identifiers ? found(std::min(*threads, *identifiers)) : ParameterFinding();
}

ParameterFinding userProcessLimit(const ParameterPlaces& places, const ParameterRow& row) {
    struct rlimit limit{};
    if (!places.files.areThisMachines() || ::getrlimit(RLIMIT_NPROC, &limit) != 0) {
        return {};
    }
    return limit.rlim_cur == RLIM_INFINITY ? processLimit(places, row)
                                           : found(std::uint64_t{limit.rlim_cur});
}

ParameterFinding hostID(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    // The value is 0 without the file, as the C library would ask the network for the host's
    // address.
    const std::string bytes = places.files.read("etc/hostid").value_or("");
    std::int32_t number = 0;
    if (bytes.size() >= sizeof number) {
        std::memcpy(&number, bytes.data(), sizeof number);
    }
    const bool isNegative = number < 0;
    const auto widened = static_cast<std::int64_t>(number);
    return ParameterNumber{.magnitude = static_cast<std::uint64_t>(isNegative ? -widened : widened),
                           .isNegative = isNegative};
}

ParameterFinding dumpsCore(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const auto pattern = places.files.text("proc/sys/kernel/core_pattern");
    return pattern ? found(!pattern->empty()) : ParameterFinding();
}

ParameterFinding fileExists(const ParameterPlaces& places, const ParameterRow& row) {
    return found(places.files.has(std::string(row.of)));
}

ParameterFinding loadAverage(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    constexpr double kMost = 1e6;
    struct {
        std::array<std::uint32_t, 3> loads{};
        std::uint32_t padding = 0;
        std::uint64_t scale = 2048;
    } average;
    const std::string content = places.files.text("proc/loadavg").value_or("");
    std::string_view rest(content);
    for (std::uint32_t& load : average.loads) {
        const auto number = decimal(rest);
        if (!number || *number > kMost) {
            return {};
        }
        load = static_cast<std::uint32_t>(*number * static_cast<double>(average.scale));
        rest.remove_prefix(std::min(rest.find(' '), rest.size() - 1) + 1);
    }
    return structureBytes(average);
}

ParameterFinding commandPath(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    std::array<char, 4096> path{};
    const std::size_t size =
        places.files.areThisMachines() ? ::confstr(_CS_PATH, path.data(), path.size()) : 0;
    return size == 0 || size > path.size() ? ParameterFinding()
                                           : ParameterFinding(std::string(path.data()));
}

ParameterFinding memoryBytes(const ParameterPlaces& places, const ParameterRow& row) {
    return found(memory(places.files, row.of));
}

ParameterFinding memoryPages(const ParameterPlaces& places, const ParameterRow& row) {
    const auto size = memory(places.files, row.of);
    const auto page = bytesOfPage(places.files);
    return size && page ? found(*size / *page) : ParameterFinding();
}

ParameterFinding memorySize(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const auto blocks = blocksOfMemory(places.files); // with what the kernel keeps for itself
    return found(blocks ? blocks : memory(places.files, "MemTotal"));
}

ParameterFinding pageSize(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(bytesOfPage(places.files));
}

ParameterFinding swapUsage(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const auto total = memory(places.files, "SwapTotal");
    const auto free = memory(places.files, "SwapFree");
    const auto page = bytesOfPage(places.files);
    if (!total || !free || !page || *free > *total) {
        return {};
    }
    const struct {
        std::uint64_t total, available, used;
        std::uint32_t pageSize, isEncrypted;
    } usage{*total, *free, *total - *free, static_cast<std::uint32_t>(*page), 0};
    return structureBytes(usage);
}

ParameterFinding machineName(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(nameOfMachine(places.files));
}

ParameterFinding computerModel(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(places.computerModel ? places.computerModel() : std::nullopt);
}

ParameterFinding byteOrder(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    constexpr std::uint64_t kLittle = 1234;
    constexpr std::uint64_t kBig = 4321;
    if (places.files.areThisMachines()) {
        return found(std::endian::native == std::endian::little ? kLittle : kBig);
    }
    const auto order = places.files.text("sys/kernel/cpu_byteorder");
    return order == "little" ? found(kLittle) : order == "big" ? found(kBig) : ParameterFinding();
}

ParameterFinding is64Bit(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    if (const auto flags = x86Flags(places.files)) {
        return found(hasFlag(*flags, "lm"));
    }
    const auto name = nameOfMachine(places.files);
    return name ? found(name->find("64") != std::string::npos || *name == "s390x")
                : ParameterFinding();
}

ParameterFinding onARM64(const ParameterPlaces& places, const ParameterRow& row) {
    return isARM64(places.files) ? constant(places, row) : ParameterFinding();
}

ParameterFinding processorType(const ParameterPlaces& places, const ParameterRow& row) {
    return x86Flags(places.files) ? found(std::uint64_t{7}) : onARM64(places, row);
}

ParameterFinding processorSubtype(const ParameterPlaces& places, const ParameterRow& row) {
    return x86Flags(places.files) ? found(std::uint64_t{8}) : onARM64(places, row);
}

ParameterFinding processorCount(const ParameterPlaces& places, const ParameterRow& row) {
    const std::size_t count = processorsIn(places.files, row.of).size();
    return count == 0 ? ParameterFinding() : found(std::uint64_t{count});
}

ParameterFinding coreCount(const ParameterPlaces& places, const ParameterRow& row) {
    static constexpr std::array<std::string_view, 2> kNames{"physical_package_id", "core_id"};
    return found(differentPlaces(places.files, row.of, kNames));
}

ParameterFinding packageCount(const ParameterPlaces& places, const ParameterRow& row) {
    return found(packagesIn(places.files, row.of));
}

ParameterFinding frequency(const ParameterPlaces& places, const ParameterRow& row) {
    std::string_view paths = row.of;
    while (!paths.empty()) {
        const std::string_view path = paths.substr(0, paths.find(' '));
        paths.remove_prefix(std::min(path.size() + 1, paths.size()));
        if (const auto kilohertz = numberIn(places.files, path)) {
            return found(times(*kilohertz, 1000));
        }
    }
    return found(fastestProcessor(places.files));
}

ParameterFinding cacheLine(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    const long size = places.files.areThisMachines() ? ::sysconf(_SC_LEVEL1_DCACHE_LINESIZE) : -1;
    return size > 0 ? found(static_cast<std::uint64_t>(size))
                    : found(numberIn(places.files, cacheFolder(0) + "coherency_line_size"));
}

ParameterFinding cacheSize(const ParameterPlaces& places, const ParameterRow& row) {
    for (int index = 0; index < kMostCaches; ++index) {
        const std::string folder = cacheFolder(index);
        const auto size = places.files.text(folder + "size");
        const auto type = places.files.text(folder + "type");
        if (size && (type == row.of || type == "Unified") &&
            numberIn(places.files, folder + "level") == static_cast<std::uint64_t>(row.number)) {
            const auto number = firstNumber(size);
            return number ? found(times(*number, size->ends_with('M')   ? 1024 * 1024
                                                 : size->ends_with('K') ? 1024
                                                                        : 1))
                          : ParameterFinding();
        }
    }
    return {};
}

ParameterFinding processorBrand(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    for (const std::string_view key : {"model name", "Hardware", "Model"}) {
        if (auto brand = processorLine(places.files, key)) {
            return *std::move(brand);
        }
    }
    return {};
}

ParameterFinding processorText(const ParameterPlaces& places, const ParameterRow& row) {
    return x86Flags(places.files) ? found(processorLine(places.files, row.of)) : ParameterFinding();
}

ParameterFinding processorNumber(const ParameterPlaces& places, const ParameterRow& row) {
    if (!x86Flags(places.files)) {
        return {};
    }
    const std::string line = processorLine(places.files, row.of).value_or("");
    std::string_view rest(line);
    for (std::int64_t index = 0; index < row.number; ++index) {
        takeNumber(rest);
    }
    return found(takeNumber(rest));
}

ParameterFinding processorFlags(const ParameterPlaces& places, const ParameterRow& /*row*/) {
    return found(upperCase(x86Flags(places.files)));
}

ParameterFinding processorFlag(const ParameterPlaces& places, const ParameterRow& row) {
    const auto flags = x86Flags(places.files);
    return flags ? found(hasFlag(*flags, row.of)) : ParameterFinding();
}

ParameterFinding machineCores(const ParameterPlaces& places, const ParameterRow& row) {
    const auto cores = firstNumber(processorLine(places.files, "cpu cores"));
    const auto packages = packagesIn(places.files, row.of);
    return cores && packages && x86Flags(places.files) ? found(times(*cores, *packages))
                                                       : ParameterFinding();
}

ParameterFinding machineThreads(const ParameterPlaces& places, const ParameterRow& row) {
    return x86Flags(places.files) ? processorCount(places, row) : ParameterFinding();
}

} // namespace qv::source
