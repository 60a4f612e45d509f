#include "platform/system/ParameterTable.h"

#include "platform/system/ParameterSources.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace qv {

namespace {

using namespace source;
using Row = ParameterRow;
using W = ParameterWidth;

constexpr std::string_view kOnline = "sys/devices/system/cpu/online";
constexpr std::string_view kPresent = "sys/devices/system/cpu/present";
constexpr std::string_view kBase = "sys/devices/system/cpu/cpu0/cpufreq/base_frequency "
                                   "sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq";
constexpr std::string_view kSlowest = "sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_min_freq "
                                      "sys/devices/system/cpu/cpu0/cpufreq/base_frequency "
                                      "sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq";

template <std::size_t count> consteval auto sorted(std::array<Row, count> rows) {
    std::ranges::sort(rows, {}, &Row::name);
    return rows;
}

// clang-format off
constexpr auto kRows = sorted(std::to_array<Row>({
    {"kern.ostype", W::text, fileText, "proc/sys/kernel/ostype"},
    {"kern.osrelease", W::text, fileText, "proc/sys/kernel/osrelease"},
    {"kern.version", W::text, fileText, "proc/version"},
    {"kern.hostname", W::text, fileText, "proc/sys/kernel/hostname"},
    {"kern.nisdomainname", W::text, domainName},
    {"kern.osversion", W::text, releaseBuild},
    {"kern.osproductversion", W::text, releaseVersion},
    {"kern.osrevision", W::four, nothing},
    {"kern.bootargs", W::text, fileText, "proc/cmdline"},
    {"kern.bootsessionuuid", W::text, bootSession},
    {"kern.uuid", W::text, nothing},
    {"kern.osbuildconfig", W::text, nothing},
    {"kern.symfile", W::text, nothing},
    {"kern.boottime", W::structure, bootTime},
    {"kern.maxproc", W::four, processLimit},
    {"kern.maxprocperuid", W::four, userProcessLimit},
    {"kern.maxfiles", W::four, fileNumber, "proc/sys/fs/file-max"},
    {"kern.maxfilesperproc", W::four, fileNumber, "proc/sys/fs/nr_open"},
    {"kern.num_files", W::four, fileNumber, "proc/sys/fs/file-nr"},
    {"kern.maxvnodes", W::four, nothing},
    {"kern.argmax", W::four, systemLimit, {}, _SC_ARG_MAX},
    {"kern.ngroups", W::four, fileNumber, "proc/sys/kernel/ngroups_max"},
    {"kern.posix1version", W::four, systemLimit, {}, _SC_VERSION},
    {"kern.job_control", W::four, constant, {}, 1},
    {"kern.saved_ids", W::four, constant, {}, 1},
    {"kern.hostid", W::four, hostID},
    {"kern.securelevel", W::four, constant, {}, 0},
    {"kern.coredump", W::four, dumpsCore},
    {"kern.corefile", W::text, fileText, "proc/sys/kernel/core_pattern"},
    {"kern.safeboot", W::four, constant, {}, 0},
    {"kern.netboot", W::four, constant, {}, 0},
    {"kern.hv_vmm_present", W::four, processorFlag, "hypervisor"},
    {"kern.hv_support", W::four, fileExists, "dev/kvm"},
    {"kern.ipc.somaxconn", W::four, fileNumber, "proc/sys/net/core/somaxconn"},
    {"kern.ipc.maxsockbuf", W::four, fileNumber, "proc/sys/net/core/wmem_max"},
    {"kern.sysv.shmmax", W::eight, fileNumber, "proc/sys/kernel/shmmax"},
    {"kern.sysv.shmall", W::eight, fileNumber, "proc/sys/kernel/shmall"},
    {"kern.sysv.shmmni", W::eight, fileNumber, "proc/sys/kernel/shmmni"},

    {"hw.machine", W::text, machineName},
    {"hw.model", W::text, computerModel},
    {"hw.ncpu", W::four, processorCount, kPresent},
    {"hw.activecpu", W::four, processorCount, kOnline},
    {"hw.logicalcpu", W::four, processorCount, kOnline},
    {"hw.logicalcpu_max", W::four, processorCount, kPresent},
    {"hw.physicalcpu", W::four, coreCount, kOnline},
    {"hw.physicalcpu_max", W::four, coreCount, kPresent},
    {"hw.packages", W::four, packageCount, kOnline},
    {"hw.byteorder", W::four, byteOrder},
    {"hw.memsize", W::eight, memorySize},
    {"hw.memsize_usable", W::eight, memoryBytes, "MemTotal"},
    {"hw.physmem", W::four, memoryBytes, "MemTotal"},
    {"hw.usermem", W::four, memoryBytes, "MemAvailable"},
    {"hw.pagesize", W::eight, pageSize},
    {"hw.pagesize32", W::eight, pageSize},
    {"hw.cpufrequency", W::eight, frequency, kBase},
    {"hw.cpufrequency_max", W::eight, frequency, kBase},
    {"hw.cpufrequency_min", W::eight, frequency, kSlowest},
    {"hw.busfrequency", W::eight, nothing},
    {"hw.tbfrequency", W::eight, constant, {}, 1'000'000'000},
    {"hw.cachelinesize", W::eight, cacheLine},
    {"hw.l1icachesize", W::eight, cacheSize, "Instruction", 1},
    {"hw.l1dcachesize", W::eight, cacheSize, "Data", 1},
    {"hw.l2cachesize", W::eight, cacheSize, "Unified", 2},
    {"hw.l3cachesize", W::eight, cacheSize, "Unified", 3},
    {"hw.cputype", W::four, processorType, {}, 16'777'228},
    {"hw.cpusubtype", W::four, processorSubtype, {}, 2},
    {"hw.cpu64bit_capable", W::four, is64Bit},
    {"hw.cpufamily", W::four, nothing},
    {"hw.epoch", W::four, nothing},
    {"hw.vectorunit", W::four, nothing},
    {"hw.targettype", W::text, nothing},

    {"hw.optional.floatingpoint", W::four, constant, {}, 1},
    {"hw.optional.arm64", W::four, onARM64, {}, 1},
    {"hw.optional.mmx", W::four, processorFlag, "mmx"},
    {"hw.optional.sse", W::four, processorFlag, "sse"},
    {"hw.optional.sse2", W::four, processorFlag, "sse2"},
    {"hw.optional.sse3", W::four, processorFlag, "pni"},
    {"hw.optional.supplementalsse3", W::four, processorFlag, "ssse3"},
    {"hw.optional.sse4_1", W::four, processorFlag, "sse4_1"},
    {"hw.optional.sse4_2", W::four, processorFlag, "sse4_2"},
    {"hw.optional.x86_64", W::four, processorFlag, "lm"},
    {"hw.optional.aes", W::four, processorFlag, "aes"},
    {"hw.optional.avx1_0", W::four, processorFlag, "avx"},
    {"hw.optional.rdrand", W::four, processorFlag, "rdrand"},
    {"hw.optional.f16c", W::four, processorFlag, "f16c"},
    {"hw.optional.enfstrg", W::four, processorFlag, "erms"},
    {"hw.optional.fma", W::four, processorFlag, "fma"},
    {"hw.optional.avx2_0", W::four, processorFlag, "avx2"},
    {"hw.optional.bmi1", W::four, processorFlag, "bmi1"},
    {"hw.optional.bmi2", W::four, processorFlag, "bmi2"},
    {"hw.optional.rtm", W::four, processorFlag, "rtm"},
    {"hw.optional.hle", W::four, processorFlag, "hle"},
    {"hw.optional.adx", W::four, processorFlag, "adx"},
    {"hw.optional.mpx", W::four, processorFlag, "mpx"},
    {"hw.optional.sgx", W::four, processorFlag, "sgx"},
    {"hw.optional.avx512f", W::four, processorFlag, "avx512f"},
    {"hw.optional.avx512cd", W::four, processorFlag, "avx512cd"},
    {"hw.optional.avx512dq", W::four, processorFlag, "avx512dq"},
    {"hw.optional.avx512bw", W::four, processorFlag, "avx512bw"},
    {"hw.optional.avx512vl", W::four, processorFlag, "avx512vl"},
    {"hw.optional.avx512ifma", W::four, processorFlag, "avx512ifma"},
    {"hw.optional.avx512vbmi", W::four, processorFlag, "avx512vbmi"},

    {"machdep.cpu.brand_string", W::text, processorBrand},
    {"machdep.cpu.vendor", W::text, processorText, "vendor_id"},
    {"machdep.cpu.family", W::four, processorNumber, "cpu family"},
    {"machdep.cpu.model", W::four, processorNumber, "model"},
    {"machdep.cpu.stepping", W::four, processorNumber, "stepping"},
    {"machdep.cpu.features", W::text, processorFlags},
    {"machdep.cpu.core_count", W::four, machineCores, kOnline},
    {"machdep.cpu.cores_per_package", W::four, processorNumber, "cpu cores"},
    {"machdep.cpu.thread_count", W::four, machineThreads, kOnline},
    {"machdep.cpu.logical_per_package", W::four, processorNumber, "siblings"},
    {"machdep.cpu.microcode_version", W::four, processorNumber, "microcode"},
    {"machdep.cpu.address_bits.physical", W::four, processorNumber, "address sizes", 0},
    {"machdep.cpu.address_bits.virtual", W::four, processorNumber, "address sizes", 1},
    {"machdep.cpu.cache.linesize", W::four, processorNumber, "clflush size"},
    {"machdep.cpu.cache.size", W::four, processorNumber, "cache size"},

    {"vm.swapusage", W::structure, swapUsage},
    {"vm.loadavg", W::structure, loadAverage},
    {"vm.page_free_count", W::four, memoryPages, "MemFree"},
    {"vm.pages", W::four, memoryPages, "MemTotal"},
    {"vm.memory_pressure", W::four, constant, {}, 0},
    {"net.inet.ip.forwarding", W::four, fileNumber, "proc/sys/net/ipv4/ip_forward"},
    {"net.inet6.ip6.forwarding", W::four, fileNumber, "proc/sys/net/ipv6/conf/all/forwarding"},
    {"user.cs_path", W::text, commandPath},
}));
// clang-format on

static_assert(std::ranges::adjacent_find(kRows, {}, &Row::name) == kRows.end());

} // namespace

std::span<const ParameterRow> parameterTable() noexcept { return kRows; }

const ParameterRow* parameterRow(std::string_view name) noexcept {
    const auto* found = std::ranges::lower_bound(kRows, name, {}, &Row::name);
    return found != kRows.end() && found->name == name ? &*found : nullptr;
}

} // namespace qv
