#include "rules/functions/ComputerModel.h"

#include "ioregistry/QVIOService.h"
#include "platform/foundation/text/StringEncoding.h"
#include "platform/foundation/values/Value.h"
#include "platform/iokit/IOKit.h"

#include <string_view>

namespace qv {

ComputerModel ComputerModel::read() {
    const io_service_t handle = IOServiceGetMatchingService(
        kIOMainPortDefault, IOServiceMatching("IOPlatformExpertDevice"));
    const auto expert = QVIOService::serviceWithIOService(handle);
    IOObjectRelease(handle);
    if (handle == 0 || expert == nullptr) {
        return {};
    }
    ComputerModel computer;
    computer.hasExpert = true;
    const std::optional<Value> model = expert->valueForProperty("model");
    if (model && model->is(Value::Kind::data)) {
        const std::string_view bytes = model->asData();
        computer.model = stringFromMacOSRoman(bytes.substr(0, bytes.find('\0')));
    }
    return computer;
}

} // namespace qv
