#include <client/AccessibilityTrust.h>
#include <client/QVCatalogHelperClient.h>
#include <iostream>
#include <platform/foundation/plist/PropertyList.h>
#include <platform/foundation/values/Exception.h>

namespace {

// A script as an installer records it: a tool, an owner that is kept, a block on a rule.
qv::Value recordedSteps() {
    const qv::URL application = qv::URL::fileURLWithPath("/opt/app");
    const qv::Value owner = qv::Value::string("system");
    qv::QVCatalogScript script;
    script.setExecuteWithAdminRights(true);
    script.beginRecording();
    qv::Error error = script.executeTool(
        qv::Value::string("/usr/bin/dpkg-deb"),
        qv::Value::array({qv::Value::string("-x"), qv::Value::string("/tmp/app.deb")}),
        qv::Value::array({qv::Value::integer(0)}));
    error = script.saveOwnerAndGroupOfURL(qv::URL::fileURLWithPath("/usr/bin"), owner);
    script.beginIfBlock(qv::Value::string("lastStatementExecutionError == 0"));
    error = script.applyOwnerAndGroupOfURL(application, true, owner);
    error = script.changeModeOfItem(application, 0755, true);
    script.endIfBlock();
    return error ? qv::Value::error(error) : *script.endRecording();
}

} // namespace

// Records steps, asks for a service that is not there, and catches what a caller's fault throws.
int main() {
    const qv::Value steps = recordedSteps();
    std::cout << "recorded";
    for (const qv::Value& step : steps.asArray()) {
        std::cout << ' ' << step.find("operation")->asInteger();
    }
    const auto list = qv::PropertyList::dataWithPropertyList(steps, qv::PropertyListFormat::xml);
    const bool same = qv::PropertyList::propertyListWithData(*list)->root == steps;
    std::cout << (same ? ", written and read\n" : ", read as another\n");

    qv::QVCatalogScript script;
    script.setPriviledgedExecutionBlock(
        qv::QVCatalogHelperClient::priviledgedExecutionBlock("/nowhere/helper.sock"));
    script.setExecuteWithAdminRights(true);
    std::cout << script.touchItemAtURL(qv::URL::fileURLWithPath("/opt/x")).localizedDescription()
              << '\n';
    script.setPriviledgedExecutionBlock(qv::QVCatalogHelperClient::priviledgedExecutionBlock(
        "/nowhere/helper.sock", qv::ClientGroup::untilReply, qv::ScriptReview::refusesErrors));
    std::cout << script.changeModeOfItem(qv::URL::fileURLWithPath("/opt/x"), 755, false)
                     .localizedDescription()
              << '\n';
    for (const qv::Finding& finding : qv::QVCatalogScriptReview::review(steps)) {
        std::cout << qv::severityName(finding.severity) << ' ' << finding.rule << '\n';
    }
    try {
        script.executeRecording(qv::Value::string("no script"), nullptr, nullptr);
    } catch (const qv::Exception& exception) {
        std::cout << exception.what() << '\n';
    }
    std::cout << (qv::isThisProcessTrusted() ? "trusted" : "not trusted") << '\n';
    std::optional<qv::URL> folder;
    if (const qv::URL zip = qv::URL::fileURLWithPath("/nowhere.zip");
        !qv::QVCatalogScript::extractZIP(zip, zip) &&
        !qv::QVCatalogScript::findBundleWithIdentifier("org.example.none", zip)) {
        std::cout
            << qv::QVCatalogScript::extractDMG(zip, &folder, {}, nullptr).localizedDescription()
            << '\n';
    }
}
