#pragma once

#include "platform/archiver/EntryStream.h"

namespace qv::archiver {

/// Reads what the parser needs of the machine, the rules of its time zone and its character set.
/// Call it before the process gives up the right to open files.
void prepareParser();

/// Tells what is in a ZIP archive, an open file, in the order in which it is stored. The last entry
/// is an end or a failure, with the name of the entry that it happened at where there is one.
///
/// Left out is AppleDouble data, the attributes of other entries: all below `__MACOSX`, and each
/// file whose name begins with "._" and whose content begins as AppleDouble does. The set-ID bits
/// and the sticky bit are left out too. An entry that is neither file, folder nor link fails.
void parseArchive(int file, EntrySender& sender);

} // namespace qv::archiver
