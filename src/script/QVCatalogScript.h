#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace qv {

class ScriptEngine;

/// The domain of the engine's own errors; their code is 0 unless an operation says otherwise.
inline constexpr std::string_view kCatalogScriptErrorDomain = "QVCatalogScriptErrorDomain";

/// Recorder and executor of scripts. A script is an array of step records (dictionaries of
/// property-list values). On the side without rights an operation acts
/// directly, or is recorded and handed to `priviledgedExecutionBlock`; on the privileged side
/// `executeRecording` replays the array and each operation acts itself.
///
/// Every operation returns an error, empty for success: code 4 of NSCocoaErrorDomain, before
/// anything is recorded or done, if a URL is missing. A caller's fault (a step of the wrong
/// class, a tool that cannot be launched) is an Exception. One script is driven by one thread at a
/// time.
class QVCatalogScript {
public:
    /// Has recorded steps run on the privileged side. Leaves its outcome in `error`, which comes in
    /// empty. `errorScriptStep` may be null.
    using PriviledgedExecutionBlock = std::function<void(
        QVCatalogScript& script, const Value& steps, Error* error, const Value** errorScriptStep)>;
    using UpdateProgressBlock = std::function<void(QVCatalogScript& script, std::uint32_t field,
                                                   const std::optional<Value>& value)>;

    QVCatalogScript();
    QVCatalogScript(const QVCatalogScript&) = delete;
    QVCatalogScript& operator=(const QVCatalogScript&) = delete;
    QVCatalogScript(QVCatalogScript&&) = delete;
    QVCatalogScript& operator=(QVCatalogScript&&) = delete;
    ~QVCatalogScript();
    /// A fresh script for a single operation.
    static std::unique_ptr<QVCatalogScript> oneLineScript();

    // Properties.
    [[nodiscard]] bool isPriviledged() const noexcept;
    void setIsPriviledged(bool isPriviledged) noexcept;
    [[nodiscard]] std::int32_t errorHandlingBehaviour() const noexcept;
    [[nodiscard]] const Error& executeRecordingLastStatementError() const noexcept;
    [[nodiscard]] bool executeWithAdminRights() const noexcept;
    /// Returns none only when a replayed step took the storage away.
    [[nodiscard]] std::optional<Value> keyValueStorage() const;
    [[nodiscard]] const PriviledgedExecutionBlock& priviledgedExecutionBlock() const noexcept;
    void setPriviledgedExecutionBlock(PriviledgedExecutionBlock block);
    [[nodiscard]] const UpdateProgressBlock& updateProgressBlock() const noexcept;
    void setUpdateProgressBlock(UpdateProgressBlock block);

    // Recording and replay (QVCatalogScript.cpp, QVCatalogScriptReplay.cpp).

    /// Returns false when already recording. Records the current settings first: admin rights,
    /// error behaviour, key-value storage. Throws an Exception, and does not record, when there is
    /// no storage.
    bool beginRecording();
    /// The recorded steps, an array; none when not recording.
    std::optional<Value> endRecording();
    /// Replays an array of step records in order. False when a step's error stopped it; `error` and
    /// `errorScriptStep` (the record's very object, alive as long as `steps`) then tell which.
    /// Either pointer may be null; both are reset first.
    bool executeRecording(const Value& steps, Error* error, const Value** errorScriptStep);
    /// The step that a replay is at, or was at when an exception left it; else a null pointer.
    [[nodiscard]] const Value* currentStep() const noexcept;

    // Files (QVCatalogScriptFiles.cpp), with the file manager's errors. Nothing is overwritten but
    // what is replaced. A success of a move, an atomic copy and a replace survives a power cut; so
    // does trashing. A URL that is not a file URL is code 262 of NSCocoaErrorDomain.

    Error removeItemAtURL(const std::optional<URL>& url);
    /// Moves an item to the trash; where the trash refuses it, the item is moved into the trash
    /// folder that there is, under an archive name and with the folder's owner; the trash's error
    /// is the result all the same.
    Error trashItemAtURL(const std::optional<URL>& url);
    /// With `adaptOwnershipToParent` the source, all of it, first gets the owner and group of the
    /// folder that the destination lies in, and keeps them when the rest fails; an item that has
    /// them is left alone. `atomic` has no effect here.
    Error moveItemFromURL(const std::optional<URL>& fromURL, const std::optional<URL>& toURL,
                          bool adaptOwnershipToParent, bool atomic);
    /// An atomic copy stands under the name "._A_" and the destination's, in its folder, until it
    /// is complete. One that stands there already fails the copy, and is removed like a failed
    /// copy.
    Error copyItemFromURL(const std::optional<URL>& fromURL, const std::optional<URL>& toURL,
                          bool adaptOwnershipToParent, bool atomic);
    /// Sets the old item aside under an archive name, copies the new one into its place, with the
    /// owner of the folder whatever the flag says, and trashes the old one. When the copy fails,
    /// the old one comes back.
    Error replaceItemAtURL(const std::optional<URL>& url, const std::optional<URL>& withItemAtURL,
                           bool adaptOwnershipToParent);
    /// Sets the dates of an item to now; a missing item becomes an empty file. Follows links, but a
    /// link that is not root's only to an item of the link's owner.
    Error touchItemAtURL(const std::optional<URL>& url);
    /// The trash folder for an item, no step: that of its own volume, as `volumeHasTrash` (may be
    /// null) then tells, else the user's. None when there is none, or no such item.
    static std::optional<URL> trashPathForURL(const std::optional<URL>& url, bool* volumeHasTrash);

    // Ownership and permissions (QVCatalogScriptOwnership.cpp). Links are followed as `stat`,
    // `chown` and `chmod` follow them, but a link that is not root's only to an item of the link's
    // owner. Recursive changes go on after a failing descendant and do not report it. An item that
    // has the owner and group already is not touched: it keeps its set-ID bits, capabilities and
    // dates. An owner is saved under an identifier of any kind but an error; numbers of the same
    // value are the same one.

    Error saveOwnerAndGroupOfURL(const std::optional<URL>& url, const std::optional<Value>& toID);
    Error applyOwnerAndGroupOfURL(const std::optional<URL>& url, bool recursive,
                                  const std::optional<Value>& fromID);
    /// A query, not a step. Either pointer may be null; written on success only.
    static Error readOwnershipOfItem(const std::optional<URL>& url, std::uint32_t* userID,
                                     std::uint32_t* groupID);
    Error changeOwnershipOfItem(const std::optional<URL>& url, std::uint32_t userID,
                                std::uint32_t groupID, bool recursive);
    /// A query, not a step; the mode includes the file-type bits.
    static Error readModeOfItem(const std::optional<URL>& url, std::uint16_t* mode);
    Error changeModeOfItem(const std::optional<URL>& url, std::uint16_t toMode, bool recursive);

    // Processes and what they may do (QVCatalogScriptProcesses.cpp).

    /// Blocks until a process, anybody's, has ended. Never fails: a number that is not a process
    /// has quit.
    Error waitForQuitOfApplicationWithPID(std::int32_t pid);
    /// Starts an application, a bundle, a desktop entry or an executable file, and does not wait
    /// for it; with the workspace's errors.
    Error launchApplicationAtURL(const std::optional<URL>& url);
    /// Grants an executable the trust of accessibility. Errors are of the domain "AXError".
    Error makeProcessAXTrusted(const std::optional<URL>& url);

    // Preferences (QVCatalogScriptPreferences.cpp).

    /// Stores a value, or removes the key when there is none. Application, key, user and host are
    /// strings, the last two names or designations of the preferences service; one that is missing
    /// makes it fail.
    Error setPreferencesForApplicationID(const std::optional<Value>& applicationID,
                                         const std::optional<Value>& key,
                                         const std::optional<Value>& value,
                                         const std::optional<Value>& userName,
                                         const std::optional<Value>& hostName);

    // Tools (QVCatalogScriptTool.cpp).

    /// Runs a program and waits for it. `arguments`: an array of strings; the null object or none
    /// for no arguments. Only exit status 0 is success: the success codes are carried, not
    /// consulted. Throws an Exception when the program cannot be started.
    Error executeTool(const std::optional<Value>& tool, const std::optional<Value>& arguments,
                      const std::optional<Value>& successReturnCodes);

    // AppleScript (QVCatalogScriptAppleScript.cpp).

    /// Compiles and executes a program in AppleScript and waits for its end, an hour at most. Never
    /// handed to a privileged side. An error has the number that the compiler, the program, an
    /// application or a shell command gave, and the printed error information as its description.
    Error executeAppleScript(const std::optional<Value>& source);

    // Archives and disk images (QVCatalogScriptArchives.cpp). No steps: they act at once, in this
    // process and with its rights, and wait for the programs that they start. Result pointers may
    // be null and are reset first. Errors of their own are of kCatalogScriptErrorDomain, code 0;
    // those of the file manager travel unchanged. Files that a failure leaves behind stay, but for
    // a mounted image and the temporary copy of one.

    /// Unpacks a disk image (extension dmg) or a ZIP archive (zip) into a fresh folder, which
    /// `toTemporaryLocation` receives; see createTemporaryFolder for the place.
    static Error copyAndExtractFile(const std::optional<URL>& file,
                                    std::optional<URL>* toTemporaryLocation,
                                    const std::optional<URL>& onSameVolumeAs);
    /// Makes a folder with a random name on the volume of an item, or in the temporary folder when
    /// none is given or that volume has no place for it. When a hundred names fail, the folder is
    /// the one that it would lie in, and the result the last error, if there was one.
    static Error createTemporaryFolder(std::optional<URL>* folder,
                                       const std::optional<URL>& onSameVolumeAs);
    /// Mounts a disk image, copies what is visible at its top into a fresh folder beside it,
    /// `extractedRoot`, and looks there for a bundle, if it is asked for one. Without
    /// `extractedRoot` there is no such folder, and the first copy fails. An image that cannot be
    /// mounted is NSPOSIXErrorDomain with the status of the tool as the code. A folder that cannot
    /// be made is not an error: `extractedRoot` stays none.
    static Error extractDMG(const std::optional<URL>& image, std::optional<URL>* extractedRoot,
                            std::optional<std::string_view> findBundleWithIdentifier,
                            std::optional<URL>* returnFoundBundleLocation);
    /// Unpacks a ZIP archive into a folder, which is made if it is missing. An archive that cannot
    /// be opened is not an error: nothing happens.
    static Error extractZIP(const std::optional<URL>& archive,
                            const std::optional<URL>& toLocation);
    /// The first bundle in or below a folder with an identifier, without regard to case: depth
    /// first in the order of the listings, hidden items included, not inside packages and not
    /// through links. None when there is none.
    static std::optional<URL> findBundleWithIdentifier(std::string_view identifier,
                                                       const std::optional<URL>& inFolder);

    // Control steps (QVCatalogScriptControl.cpp).

    void updateProgressField(std::uint32_t field, const std::optional<Value>& withValue);
    /// Begins a block that is executed when the rule, a string, holds. Throws an Exception for a
    /// rule of another class.
    void beginIfBlock(const std::optional<Value>& rule);
    void beginElseBlock();
    void endIfBlock();
    void setErrorHandlingBehaviour(std::int32_t behaviour);
    void setExecuteWithAdminRights(bool flag);
    void setKeyValueStorage(const std::optional<Value>& storage);

private:
    friend class ScriptEngine;
    std::unique_ptr<ScriptEngine> engine_;
};

} // namespace qv
