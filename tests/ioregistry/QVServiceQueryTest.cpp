#include "ioregistry/QVServiceQuery.h"

#include <fmt/format.h>

#include "RecordedServices.h"

namespace qv::test {
namespace {

enum class Call : std::uint8_t { probe, use, notification, terminate, error };

/// Writes down what it hears, and does what a test wants in between.
class WritingDelegate final : public QVServiceQueryDelegate {
public:
    explicit WritingDelegate(std::string& told) : told_(told) {}
    std::function<void(Call)> inCall = [](Call) {};
    bool probes = true;
    Error refusal;
    std::size_t pairs = 0; ///< of the user information of the last error

    bool probeNewService(QVServiceQuery& /*query*/,
                         const std::shared_ptr<QVIOService>& service) override {
        tell(Call::probe, "probe " + nameOf(service->service()));
        return probes;
    }
    Error
    useNewServiceWithAttributes(QVServiceQuery& /*query*/,
                                const std::shared_ptr<QVServiceAttributes>& attributes) override {
        tell(Call::use, "use " + nameIn(*attributes));
        return refusal;
    }
    void
    notificationForServiceWithAttributes(QVServiceQuery& /*query*/,
                                         const std::shared_ptr<QVServiceAttributes>& attributes,
                                         natural_t type, std::uintptr_t /*argument*/) override {
        tell(Call::notification, fmt::format("{:X} {}", type & 0xFFFU, nameIn(*attributes)));
    }
    void terminateServiceWithAttributes(
        QVServiceQuery& /*query*/,
        const std::shared_ptr<QVServiceAttributes>& attributes) override {
        tell(Call::terminate, "terminate " + nameIn(*attributes));
    }
    void error(QVServiceQuery& /*query*/, const QVServiceQueryError& error) override {
        pairs = error.userInfo.size();
        const auto object = [&](std::string_view key) { return error.userInfo.find(key)->second; };
        tell(Call::error,
             fmt::format(
                 "error {} {} {} {}",
                 std::any_cast<std::uint32_t>(object(kQVServiceQueryErrorCode)),
                 error.error.domain(), error.error.code(),
                 nameOf(
                     std::any_cast<QVIOObject>(object(kQVServiceQueryErrorIOObject)).ioObject())));
    }

private:
    static std::string nameIn(const QVServiceAttributes& attributes) {
        const auto& service = attributes.find("service")->second;
        EXPECT_NE(
            std::any_cast<QVIOObject>(attributes.find("serviceNotification")->second).ioObject(),
            0U);
        return nameOf(std::any_cast<std::shared_ptr<QVIOService>>(service)->service());
    }
    void tell(Call call, const std::string& text) {
        told_ += text + "; ";
        const auto keep = inCall; // the call may drop the delegate
        keep(call);
    }
    std::string& told_;
};

class ServiceQuery : public RecordedServices {
protected:
    void TearDown() override {
        query.reset();
        RecordedServices::TearDown();
    }
    std::string take() { return std::exchange(told, ""); }
    void plug(const std::string& name, const std::string& action = "add") {
        const std::string path = "/devices/virtual/block/" + name;
        tree.add(path, "block");
        after({action, path});
    }
    std::shared_ptr<WritingDelegate> delegate = std::make_shared<WritingDelegate>(told);
    std::shared_ptr<QVServiceQuery> query = QVServiceQuery::initWithMatchingDictionary(
        QVServiceQuery::matchingDictionaryForIOServiceClass("IOMedia"), delegate);
};

TEST_F(ServiceQuery, AnswersOnce) {
    kern_return_t result = 1;
    const auto services = [&](const Value& matching) {
        const auto found = QVServiceQuery::servicesMatchingDictionary(matching, &result);
        return found ? found->size() : 0;
    };
    EXPECT_EQ(QVServiceQuery::servicesMatchingDictionary(IOServiceMatching("None"), nullptr),
              std::nullopt);
    EXPECT_EQ(services(IOServiceMatching("None")), 0U);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(services(IOServiceMatching("IOMedia")), 4U);
    EXPECT_EQ(
        services(QVServiceQuery::matchingDictionaryForRegistryEntryID(named("eth0")->uniqueID())),
        1U);
    EXPECT_EQ(services(Value()), 0U);
    EXPECT_EQ(result, kIOReturnBadArgument);
}

TEST_F(ServiceQuery, TellsItsWholeLife) {
    query->setMatchingDictionary(IOServiceNameMatching("sda2"));
    EXPECT_TRUE(query->startQuery());
    EXPECT_EQ(take(), "probe sda2; use sda2; ");
    EXPECT_FALSE(query->startQuery());
    EXPECT_TRUE(query->isRunning());
    query->stopQuery();
    query->stopQuery();
    EXPECT_FALSE(query->isRunning());
    EXPECT_EQ(take(), "terminate sda2; ");
    query->setMatchingDictionary(IOServiceMatching("IOMedia"));
    EXPECT_TRUE(query->startQuery());
    EXPECT_EQ(query->serviceCount(), 4U);
    take();
    plug("loop1");
    EXPECT_EQ(take(), "probe loop1; use loop1; ");
    after({"change", "/devices/virtual/block/loop1"});
    EXPECT_EQ(take(), "130 loop1; ");
    unplug("/devices/virtual/block/loop1");
    EXPECT_EQ(take(), "10 loop1; terminate loop1; ");
    unplug(std::string(kDisk) + "/sda2");
    take();
    query->stopQuery(); // one of the four has gone
    EXPECT_EQ(query->serviceCount(), 0U);
    const std::string ends = take();
    EXPECT_EQ(ends.size(),
              std::string("terminate sda; terminate sda10; terminate cciss!c0d1; ").size())
        << ends;
}

TEST_F(ServiceQuery, CannotStartWithout) {
    query->setMatchNotificationType("IOServiceNoSuch");
    EXPECT_FALSE(query->startQuery());
    query->setMatchNotificationType("IOServicePublish");
    query->setMatchingDictionary(Value());
    EXPECT_FALSE(query->startQuery());
    EXPECT_FALSE(query->isRunning());
    query->stopQuery();
}

TEST_F(ServiceQuery, RefusedServicesAreLeftAlone) {
    query->setMatchingDictionary(IOServiceNameMatching("sda2"));
    delegate->refusal = Error("D", 5);
    EXPECT_TRUE(query->startQuery());
    EXPECT_EQ(take(), "probe sda2; use sda2; error 14 D 5 sda2; ");
    EXPECT_EQ(delegate->pairs, 3U);
    EXPECT_EQ(query->serviceCount(), 0U);
    after({"change", std::string(kDisk) + "/sda2"});
    EXPECT_EQ(take(), "");
    query->stopQuery();
    delegate->probes = false;
    EXPECT_TRUE(query->startQuery());
    EXPECT_EQ(take(), "probe sda2; ");
    query->stopQuery();
    delegate->probes = true;
    query->setVerboseErrors(false);
    delegate->inCall = [&](Call call) { // it goes before its messages can be asked for
        if (call == Call::probe) {
            tree.remove(std::string(kDisk) + "/sda2");
            static_cast<void>(QVIOService::servicesForMatchingClass("IOMedia"));
        }
    };
    EXPECT_TRUE(query->startQuery());
    EXPECT_EQ(take(), "probe sda2; error 12 NSMachErrorDomain -536870201 sda2; ");
    EXPECT_EQ(delegate->pairs, 2U);
}

TEST_F(ServiceQuery, ServiceMatchedAgainIsReplaced) {
    query->setMatchNotificationType("IOServiceMatched");
    query->startQuery();
    take();
    const auto handles = registry.size().handles;
    after({"bind", kDisk});
    EXPECT_EQ(take(), "probe sda; use sda; 130 sda; ");
    EXPECT_EQ(query->serviceCount(), 4U);
    EXPECT_EQ(registry.size().handles, handles);
}

// The delegate stops the query in each of the calls, starts it anew, drops it, or goes away.
TEST_F(ServiceQuery, DelegateMayEndItAnywhere) {
    enum class Deed : std::uint8_t { stop, restart, drop, die };
    for (const Call call :
         {Call::probe, Call::use, Call::notification, Call::terminate, Call::error}) {
        for (const Deed deed : {Deed::stop, Deed::restart, Deed::drop, Deed::die}) {
            SCOPED_TRACE(
                fmt::format("call {}, deed {}", static_cast<int>(call), static_cast<int>(deed)));
            delegate = std::make_shared<WritingDelegate>(told);
            query =
                QVServiceQuery::initWithMatchingDictionary(IOServiceMatching("IOMedia"), delegate);
            bool done = false;
            const bool refuses = call == Call::use || call == Call::error; // the first one
            delegate->refusal = refuses ? Error("D", 5) : Error();
            delegate->inCall = [&](Call current) {
                if (current != call || std::exchange(done, true)) {
                    return;
                }
                if (deed == Deed::drop) {
                    query.reset();
                } else if (deed == Deed::die) {
                    delegate.reset();
                } else {
                    query->stopQuery();
                    delegate->refusal = Error();
                    EXPECT_TRUE(deed == Deed::stop || query->startQuery());
                    delegate->refusal = refuses ? Error("D", 5) : Error();
                }
            };
            EXPECT_TRUE(query->startQuery());
            plug("loop2");
            after({"change", "/devices/virtual/block/loop2"});
            if (call == Call::terminate) {
                query->stopQuery();
            }
            unplug("/devices/virtual/block/loop2");
            EXPECT_TRUE(done);
            const bool isStopped = call == Call::terminate && deed == Deed::die;
            EXPECT_EQ(query && query->isRunning(),
                      deed == Deed::restart || (deed == Deed::die && !isStopped));
            query.reset();
            EXPECT_EQ(take().find("error 12"), std::string::npos) << "set up without a port";
            EXPECT_EQ(registry.size().handles, 0U);
        }
    }
}

TEST_F(ServiceQuery, KeepsNothingOfThousandsOfEvents) {
    query->startQuery();
    plug("loop3");
    unplug("/devices/virtual/block/loop3");
    const auto size = registry.size();
    for (int i = 0; i < 1000; ++i) {
        plug("loop3");
        unplug("/devices/virtual/block/loop3");
        take();
    }
    EXPECT_EQ(registry.size(), size);
    EXPECT_EQ(query->serviceCount(), 4U);
}

} // namespace
} // namespace qv::test
