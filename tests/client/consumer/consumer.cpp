#include <client/AccessibilityTrust.h>
#include <client/QVCatalogHelperClient.h>
#include <iostream>
#include <platform/foundation/values/Exception.h>

// Records a step, asks for a service that is not there, and catches what a caller's fault throws.
int main() {
    qv::QVCatalogScript script;
    script.beginRecording();
    const qv::Error recorded =
        script.changeModeOfItem(qv::URL::fileURLWithPath("/opt/app"), 0755, true);
    const auto steps = script.endRecording();
    const auto client = qv::QVCatalogHelperClient::connect("/nowhere/helper.sock");
    try {
        const qv::Value* failed = nullptr;
        script.executeRecording(qv::Value::string("no script"), nullptr, &failed);
    } catch (const qv::Exception& exception) {
        std::cout << exception.what() << '\n';
    }
    std::cout << (recorded ? "not recorded" : "recorded") << ' ' << steps->asArray().size() << '\n'
              << client.error().localizedDescription() << '\n'
              << (qv::isThisProcessTrusted() ? "trusted" : "not trusted") << '\n';
}
