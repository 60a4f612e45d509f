#pragma once

#include "script/Steps.h"
#include "service/Puppet.h"
#include "support/LiveService.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {

/// A service that runs and a good client that it has accepted.
class ServiceTest : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: the service verifies its clients and acts as root";
        }
        service_ = std::make_unique<LiveService>();
        ASSERT_TRUE(service_->waitForLog("QVCatalogHelperXPC launched"));
        client_ = connected();
        ASSERT_NE(client_, nullptr);
    }

    void TearDown() override {
        if (HasFailure() && service_ != nullptr) {
            std::cerr << service_->log();
        }
    }

    /// A further good client; null when the service does not accept it.
    [[nodiscard]] std::unique_ptr<Puppet> connected() const {
        auto client = std::make_unique<Puppet>();
        return client->connect(service_->socketPath()) ? std::move(client) : nullptr;
    }

    /// Whether a good client that comes now is served. Ends the service when nobody else is
    /// counted.
    [[nodiscard]] bool servesOthers() const {
        const auto other = connected();
        const auto outcome = other == nullptr ? std::nullopt : other->execute(Value::array({}));
        return outcome && outcome->success;
    }

    /// Waits until the service holds no more descriptors than that. A served request lets whatever
    /// is ready in the service go first.
    [[nodiscard]] bool fallsTo(std::size_t descriptors) const {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (service_->descriptors() > descriptors) {
            if (std::chrono::steady_clock::now() > end || !client_->execute(Value::array({}))) {
                return false;
            }
        }
        return true;
    }

    /// Has the service count a client that stays, so that it does not end during the test.
    void keepServing() {
        keeper_ = connected();
        ASSERT_NE(keeper_, nullptr);
        ASSERT_TRUE(keeper_->execute(Value::array({}))->success);
    }

    std::unique_ptr<LiveService> service_;
    std::unique_ptr<Puppet> client_;
    std::unique_ptr<Puppet> keeper_;
    TemporaryDirectory folder_;
};

/// A step that leaves a line in a file.
inline Value noteStep(const std::filesystem::path& file, std::string_view line) {
    return toolStep("/bin/sh", {"-c", R"(echo "$1" >>"$2")", "sh", line, file.native()});
}

} // namespace qv::test
