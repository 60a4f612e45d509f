#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"

namespace qv {

// Functions that every rule has and that do not answer yet.

class QVRuleCheckerVersionFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerVersionFunction();
};

class QVRuleCheckerSysCtlFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerSysCtlFunction();
};

class QVRuleCheckerObjCFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerObjCFunction();
};

class QVRuleCheckerApplicationFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerApplicationFunction();
};

class QVRuleCheckerFilesystemFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerFilesystemFunction();
};

} // namespace qv
