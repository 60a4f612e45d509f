#pragma once

#include "script/step/Field.h"

/// The fields of all operations, each named once: rows of the table list them, and methods check
/// what they were given against them.
namespace qv::field {

using enum StepKey;

inline constexpr Field kItem{URL, "item", FieldKind::item, Missing::refused};
inline constexpr Field kItemToSave{fromURL, "item", FieldKind::item, Missing::refused};
inline constexpr Field kItemToOwn{toURL, "item", FieldKind::item, Missing::refused};
inline constexpr Field kApplicationItem{URL, "application", FieldKind::item, Missing::refused};
inline constexpr Field kProgram{URL, "program", FieldKind::item, Missing::refused};
inline constexpr Field kFrom{fromURL, "from", FieldKind::item, Missing::refused};
inline constexpr Field kTo{toURL, "to", FieldKind::item, Missing::refused};
inline constexpr Field kNewItem{fromURL, "new item", FieldKind::item, Missing::refused};
inline constexpr Field kOldItem{toURL, "old item", FieldKind::item, Missing::refused};
inline constexpr Field kAdapt{arg1, "adapt ownership", FieldKind::flag, Missing::zero};
inline constexpr Field kAtomic{arg2, "atomic", FieldKind::flag, Missing::zero};

inline constexpr Field kSaveAs{arg1, "identifier", FieldKind::identifier, Missing::raises};
inline constexpr Field kOwnerRecursive{arg1, "recursive", FieldKind::flag, Missing::zero};
inline constexpr Field kSavedAs{arg2, "identifier", FieldKind::identifier, Missing::fails};
inline constexpr Field kUserID{arg1, "user", FieldKind::userID, Missing::zero};
inline constexpr Field kGroupID{arg2, "group", FieldKind::groupID, Missing::zero};
inline constexpr Field kIDsRecursive{arg3, "recursive", FieldKind::flag, Missing::zero};
inline constexpr Field kMode{arg1, "mode", FieldKind::mode, Missing::zero};
inline constexpr Field kModeRecursive{arg2, "recursive", FieldKind::flag, Missing::zero};

inline constexpr Field kProcess{arg1, "process", FieldKind::processID, Missing::zero};
inline constexpr Field kTool{arg1, "tool", FieldKind::toolPath, Missing::raises};
inline constexpr Field kArguments{arg2, "arguments", FieldKind::arguments, Missing::none,
                                  InRecord::nullObject};
inline constexpr Field kExitCodes{arg3, "success codes", FieldKind::exitCodes, Missing::none};
inline constexpr Field kAppleScript{arg1, "source", FieldKind::appleScript, Missing::none};

inline constexpr Field kApplication{arg1, "application", FieldKind::application, Missing::fails,
                                    InRecord::leftOut};
inline constexpr Field kPreferenceKey{arg2, "key", FieldKind::preferenceKey, Missing::fails,
                                      InRecord::leftOut};
inline constexpr Field kPreference{arg3, "value", FieldKind::value, Missing::none,
                                   InRecord::leftOut};
inline constexpr Field kUser{arg4, "user", FieldKind::user, Missing::fails, InRecord::leftOut};
inline constexpr Field kHost{arg5, "host", FieldKind::host, Missing::fails, InRecord::leftOut};

inline constexpr Field kProgressField{arg1, "field", FieldKind::progressField, Missing::zero};
inline constexpr Field kProgress{arg2, "value", FieldKind::value, Missing::none};
inline constexpr Field kRule{arg1, "rule", FieldKind::rule, Missing::none};
inline constexpr Field kErrorBehaviour{arg1, "behaviour", FieldKind::errorBehaviour, Missing::zero};
inline constexpr Field kAdminRights{arg1, "admin rights", FieldKind::adminFlag, Missing::zero};
inline constexpr Field kStorage{arg1, "storage", FieldKind::storage, Missing::none};

} // namespace qv::field
