// An application in miniature: ScriptClient SOCKET FILE USER MANNER, where MANNER is "direct",
// "admin" (with admin rights), "stubborn" (no second attempt) or "alone" (without the service).
// As that user it makes FILE's mode 0640 through a script object, and prints how that went.

#include "client/QVCatalogHelperClient.h"

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <unistd.h>

int main(int count, char** arguments) {
    constexpr std::uint16_t kMode = 0640;
    constexpr std::int32_t kStubborn = 0x100;
    if (count != 5) {
        return EXIT_FAILURE;
    }
    const std::string_view manner = arguments[4];
    const auto user = static_cast<uid_t>(std::strtoul(arguments[3], nullptr, 10));
    if (::setresgid(user, user, user) != 0 || ::setresuid(user, user, user) != 0) {
        return EXIT_FAILURE;
    }
    qv::QVCatalogScript script;
    if (manner != "alone") {
        script.setPriviledgedExecutionBlock(
            qv::QVCatalogHelperClient::priviledgedExecutionBlock(arguments[1]));
    }
    script.setExecuteWithAdminRights(manner == "admin");
    script.setErrorHandlingBehaviour(manner == "stubborn" ? kStubborn : 0);
    for (int i = 0; i < 2; ++i) { // the second time over the connection that there is
        const qv::Error error =
            script.changeModeOfItem(qv::URL::fileURLWithPath(arguments[2]), kMode, false);
        std::cout << (error ? error.description() : "done") << '\n';
    }
    return EXIT_SUCCESS;
}
