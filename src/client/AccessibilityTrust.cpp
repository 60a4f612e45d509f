#include "client/AccessibilityTrust.h"

#include "platform/accessibility/TrustStore.h"

#include <unistd.h>

namespace qv {

bool isProcessTrusted(pid_t process) {
    const auto verdict = TrustStore().checkProcess(process);
    return verdict && verdict->isTrusted;
}

bool isThisProcessTrusted() { return isProcessTrusted(::getpid()); }

} // namespace qv
