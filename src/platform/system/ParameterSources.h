#pragma once

#include "platform/system/ParameterFinding.h"

namespace qv::source {

// The kinds of source that rows of the table name. Each says what it takes from its row; it finds
// nothing where its file is missing or does not read as expected.

ParameterFinding nothing(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding constant(const ParameterPlaces& places, const ParameterRow& row); ///< `number`
/// The text of file `of` without the line feed at its end.
ParameterFinding fileText(const ParameterPlaces& places, const ParameterRow& row);
/// The first number in file `of`.
ParameterFinding fileNumber(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding systemLimit(const ParameterPlaces& places, const ParameterRow& row); ///< sysconf()

// The build of the distribution.
ParameterFinding releaseBuild(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding releaseVersion(const ParameterPlaces& places, const ParameterRow& row);

// The domain name of the running system.
ParameterFinding domainName(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding bootSession(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding bootTime(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding processLimit(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding userProcessLimit(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding hostID(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding dumpsCore(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding fileExists(const ParameterPlaces& places, const ParameterRow& row); ///< `of`
ParameterFinding loadAverage(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding commandPath(const ParameterPlaces& places, const ParameterRow& row);

// The size of memory.
ParameterFinding memoryBytes(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding memoryPages(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding memorySize(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding pageSize(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding swapUsage(const ParameterPlaces& places, const ParameterRow& row);

// The name of the hardware.
ParameterFinding machineName(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding computerModel(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding byteOrder(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding is64Bit(const ParameterPlaces& places, const ParameterRow& row);
/// Returns `number` on 64-bit ARM.
ParameterFinding onARM64(const ParameterPlaces& places, const ParameterRow& row);
/// The processor's type as programs of BSD systems know it; on 64-bit ARM `number`.
ParameterFinding processorType(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding processorSubtype(const ParameterPlaces& places, const ParameterRow& row);
/// The number of the processors that file `of` lists, of their cores, or of their packages.
ParameterFinding processorCount(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding coreCount(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding packageCount(const ParameterPlaces& places, const ParameterRow& row);
/// The frequency in Hz, from the first of the files of `of`, with blanks between them, which count
/// in kHz; else the fastest processor at the moment.
ParameterFinding frequency(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding cacheLine(const ParameterPlaces& places, const ParameterRow& row);
/// The size of the cache of level `number` and type `of`.
ParameterFinding cacheSize(const ParameterPlaces& places, const ParameterRow& row);

// A fact about the first processor of proc/cpuinfo. All but the brand are there on x86 alone.
ParameterFinding processorBrand(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding processorText(const ParameterPlaces& places,
                               const ParameterRow& row); ///< line `of`
/// Number `number`, counted from 0, in line `of`.
ParameterFinding processorNumber(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding processorFlags(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding processorFlag(const ParameterPlaces& places, const ParameterRow& row); ///< `of`
/// The cores of all packages of file `of`.
ParameterFinding machineCores(const ParameterPlaces& places, const ParameterRow& row);
ParameterFinding machineThreads(const ParameterPlaces& places, const ParameterRow& row);

} // namespace qv::source
