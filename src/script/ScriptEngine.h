#pragma once

#include "platform/foundation/os/ProcessIdentity.h"
#include "script/FunctionView.h"
#include "script/KeyValueStorage.h"
#include "script/PlatformServices.h"
#include "script/QVCatalogScript.h"
#include "script/StepObserver.h"
#include "script/step/StepRecord.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace qv {

class NamedItem;
struct ExtractionTools;
struct RuleServices;

// The inside of a QVCatalogScript. It is not installed, so applications do not depend on it.

struct ScriptVariables {
    bool isRecording = false;
    std::vector<Value> recordedSteps;
    std::int32_t errorHandlingBehaviour = 0;
    Error executeRecordingLastStatementError;
    bool executeWithAdminRights = false;
    bool executeScript = true;
    std::int64_t ignoreIfBlocksCount = 0;
    bool isPriviledged = false;
    QVCatalogScript::PriviledgedExecutionBlock priviledgedExecutionBlock_;
    QVCatalogScript::UpdateProgressBlock updateProgressBlock;
    KeyValueStorage keyValueStorage;
    const Value* currentStep = nullptr;
    StepObserver* observer = nullptr; ///< of replays; none: nobody is told
    /// The outcome of the operation at hand, should it succeed; none: that which follows from its
    /// effect.
    std::optional<StepOutcome> noted;
    /// The looks at items, to tell the observer whether they were so already.
    std::size_t looks = 0;
    std::string ruleFault; ///< of the rule at hand, for the observer
    /// The process on whose behalf the script runs: applications are launched in that user's
    /// session. This process itself if it is not set. Set before the script runs, as the services
    /// are.
    ProcessIdentity::Shared requester;
    PlatformServices services;
    std::shared_ptr<const RuleServices> servicesOfRules; ///< none before the first rule
};

/// The decision that every operation takes, and what the operations share.
class ScriptEngine : public ScriptVariables {
public:
    using RecordingBlock = FunctionView<std::optional<Value>()>;
    using ExecutionBlock = FunctionView<Error()>;
    using OperationsBlock = FunctionView<void()>;

    explicit ScriptEngine(QVCatalogScript& script) : script_(script) {}
    static ScriptEngine& of(QVCatalogScript& script) noexcept { return *script.engine_; }

    /// The decision inside every operation: skip, record, act, or hand to the privileged side.
    Error _recordOrExecuteWithRecordingBlock(RecordingBlock recordingBlock,
                                             ExecutionBlock executionBlock,
                                             OperationsBlock priviledgedExecutionBlock,
                                             unsigned options);
    Error _recordAndPerformOperationInPriviledgedBlock(OperationsBlock block);
    /// Records `arguments`, one for each field of the operation's row, or acts.
    Error perform(OperationCode code, std::initializer_list<StepArgument> arguments,
                  ExecutionBlock executionBlock);
    void recordControlStep(OperationCode code, std::initializer_list<StepArgument> arguments);
    /// `operation` is null for an unknown code, which does nothing.
    Error replayStep(const Operation* operation, const StepFields& fields);
    /// The same for the step of an index, which the observer is told of.
    Error replayObserved(std::size_t index, const Operation* operation, const StepFields& fields);

    // The operations of these names, for items whose places are held already.
    Error move(const NamedItem& from, const NamedItem& to, bool adaptOwnershipToParent,
               bool atomic);
    Error copy(const NamedItem& from, const NamedItem& to, bool adaptOwnershipToParent,
               bool atomic);
    Error trash(const NamedItem& item);
    Error changeOwnership(const NamedItem& item, std::uint32_t userID, std::uint32_t groupID,
                          bool recursive);
    static std::optional<URL> trashPathForURL(const NamedItem& item, bool* volumeHasTrash,
                                              TrashService& trash);
    /// The first free name in a folder for an item that is set aside, no step: "Foo.app",
    /// "Foo (2.1).app" with its version or else the day of its last change, "Foo (2.1 - 1).app" and
    /// so on; without either "Foo (0).app", "Foo (1).app".
    static URL _smartArchiveNameItem(const URL& item, const URL& atDirectory);

    // The class methods of these names, with the tools that they start.
    static Error copyAndExtractFile(const std::optional<URL>& file,
                                    std::optional<URL>* toTemporaryLocation,
                                    const std::optional<URL>& onSameVolumeAs,
                                    const ExtractionTools& tools);
    static Error extractDMG(const std::optional<URL>& image, std::optional<URL>* extractedRoot,
                            std::optional<std::string_view> findBundleWithIdentifier,
                            std::optional<URL>* returnFoundBundleLocation,
                            const ExtractionTools& tools);
    static Error extractZIP(const std::optional<URL>& archive, const std::optional<URL>& toLocation,
                            const ExtractionTools& tools);

    class RecordingEnd;

    TrashService& trashService();
    WorkspaceService& workspaceService();
    PreferencesService& preferencesService();
    AccessibilityService& accessibilityService();
    UserProcesses& appleScriptProcesses();
    /// The requester; without one, whoever asks is the process that the script runs in.
    [[nodiscard]] ProcessIdentity::Shared requesterOrSelf() const;
    /// The services above, for rules. They live as long as this.
    [[nodiscard]] std::shared_ptr<const RuleServices> ruleServices();

private:
    Error performBetween(OperationCode code, const NamedItem& from, const NamedItem& to,
                         bool adaptOwnershipToParent, bool atomic, ExecutionBlock executionBlock);
    QVCatalogScript& script_;
};

} // namespace qv
