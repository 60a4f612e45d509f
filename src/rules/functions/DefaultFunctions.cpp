#include "rules/functions/DefaultFunctions.h"

namespace qv {

QVRuleCheckerVersionFunction::QVRuleCheckerVersionFunction()
    : QVRuleCheckerFunction("version", "version", nullptr) {}

QVRuleCheckerSysCtlFunction::QVRuleCheckerSysCtlFunction()
    : QVRuleCheckerFunction("sysctl", "sysctl", nullptr) {}

QVRuleCheckerObjCFunction::QVRuleCheckerObjCFunction()
    : QVRuleCheckerFunction("objc", std::nullopt, nullptr) {}

QVRuleCheckerApplicationFunction::QVRuleCheckerApplicationFunction()
    : QVRuleCheckerFunction("application", "application", nullptr) {}

QVRuleCheckerFilesystemFunction::QVRuleCheckerFilesystemFunction()
    : QVRuleCheckerFunction("filesystem", std::nullopt, nullptr) {}

} // namespace qv
