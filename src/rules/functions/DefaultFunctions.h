#pragma once

#include "rules/functions/QVRuleCheckerFunction.h"

namespace qv {

// The functions that every rule has. None of these answers yet.

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

class QVRuleCheckerIOKitFunction final : public QVRuleCheckerFunction {
public:
    QVRuleCheckerIOKitFunction();
};

} // namespace qv
