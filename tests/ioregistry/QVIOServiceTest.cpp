#include "ioregistry/QVIOService.h"

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/archive/KeyedUnarchiver.h"

#include <fmt/format.h>

#include "RecordedServices.h"
#include <algorithm>
#include <thread>

namespace qv::test {
namespace {

class IOService : public RecordedServices {
protected:
    struct Listener final : QVIOServiceListener {
        explicit Listener(std::function<void(natural_t)> heard) : hears(std::move(heard)) {}
        void service(QVIOService& /*service*/, natural_t type, std::uintptr_t argument) override {
            hears(type & 0xFFFU);
            EXPECT_LE(argument, 1U);
        }
        std::function<void(natural_t)> hears;
    };
    std::shared_ptr<Listener> listener(const std::string& name) {
        return std::make_shared<Listener>(
            [this, name](natural_t type) { told += fmt::format("{}:{:X} ", name, type); });
    }
};

TEST_F(IOService, TokensAreEqualByEntryID) {
    const Held disk = serviceNamed("sda");
    const QVIOObject object(disk);
    QVIOObject copy = object;
    EXPECT_EQ(copy, object);
    EXPECT_EQ(std::hash<QVIOObject>()(copy), object.uniqueID());
    EXPECT_NE(object.uniqueID(), 0U);
    copy.setUniqueID(1);
    EXPECT_EQ(copy, object) << "by its handle";
    copy.setIoObject(copy.ioObject());
    copy.setIoObject(0);
    EXPECT_NE(copy, object);
    for (int i = 0; i < 2; ++i) { // each copy has a reference of its own
        copy = object;
        EXPECT_EQ(copy, object);
        copy.setIoObject(0);
    }
    EXPECT_TRUE(IOObjectConformsTo(disk, "IOMedia"));
    copy = QVIOObject::withIOObject(serviceNamed("sda2"));
    EXPECT_NE(copy, object);
    EXPECT_EQ(QVIOObject(77), QVIOObject(0)) << "IDs that cannot be read";
}

TEST_F(IOService, ArchivedTokenLivesWithItsDevice) {
    const auto revived = [&](const std::string& archive) {
        const auto coder = KeyedUnarchiver::unarchiveObjectWithData(archive);
        return QVIOObject::initWithCoder(coder.value());
    };
    std::optional<QVIOObject> object(serviceNamed("eth0"));
    const Value coder = object->encodeWithCoder();
    EXPECT_EQ(coder.asDictionary().size(), 1U);
    const std::string archive = KeyedArchiver::archivedDataWithRootObject(coder).value();
    EXPECT_EQ(revived(archive), object);
    object.reset();
    EXPECT_TRUE(revived(archive));
    tree.remove("/devices/virtual/net/eth0");
    EXPECT_FALSE(revived(archive));
    EXPECT_FALSE(QVIOObject::initWithCoder(Value::dictionary({{"entryID", Value::string("1")}})));
    EXPECT_FALSE(QVIOObject::initWithCoder(Value::integer(1)));
}

TEST_F(IOService, TellsWhereItStands) {
    const auto disk = named("sda");
    const auto partition = named("sda2");
    EXPECT_EQ(disk->path(), pathOf(disk->service()));
    EXPECT_EQ(disk->serviceClass(), "IOMedia");
    EXPECT_EQ(*partition->parentService(), *disk);
    EXPECT_EQ(disk->childServices()->size(), 2U);
    EXPECT_EQ(partition->childServices(), std::nullopt);
    EXPECT_TRUE(partition->isChildOf(*disk));
    EXPECT_TRUE(partition->isChildOf(*disk->parentService()->parentService()));
    EXPECT_FALSE(disk->isChildOf(*disk));
    EXPECT_FALSE(disk->isChildOf(*partition));
    EXPECT_TRUE(disk->conformsToIOClass("IOStorage"));
    EXPECT_FALSE(disk->conformsToIOClass("IOPCIDevice"));
    EXPECT_FALSE(disk->conformsToIOClass("IOMedi\xC3\xA4"));
    EXPECT_EQ(disk->valueForProperty("BSD Name"), Value::string("sda"));
    EXPECT_EQ(*disk->properties()->find("BSD Name"), Value::string("sda"));
    EXPECT_EQ(QVIOService::servicesForMatchingClass("IOMedia").size(), 4U);
    EXPECT_EQ(QVIOService::servicesForMatchingDict(Value::integer(1)).size(), 0U);
}

TEST_F(IOService, AsksForLongestClassNameOnly) {
    const std::string name(126, 'A'); // "IO", and "Device" behind it
    tree.add("/devices/virtual/long/a", "a" + name.substr(0, 118));
    tree.add("/devices/virtual/long/b", "b" + name.substr(0, 119));
    const auto fits = named("a");
    const auto tooLong = named("b");
    EXPECT_TRUE(fits->conformsToIOClass(*fits->serviceClass()));
    EXPECT_EQ(tooLong->serviceClass()->size(), 128U);
    EXPECT_FALSE(tooLong->conformsToIOClass(*tooLong->serviceClass()));
}

TEST_F(IOService, SearchesParentsBeforeChildren) {
    std::string seen;
    const auto search = [&](std::string_view wanted, bool includesItself) {
        seen.clear();
        const auto start = named("0:0:2:1");
        const auto found = start->childServiceMatching(
            [&](QVIOService& service) {
                seen += nameOf(service.service()) + " ";
                return nameOf(service.service()) == wanted;
            },
            includesItself);
        return found ? nameOf(found->service()) : "none";
    };
    EXPECT_EQ(search("none", true), "none");
    EXPECT_EQ(seen, "0:0:2:1 sda sda2 sda10 ");
    EXPECT_EQ(search("sda2", false), "sda2");
    EXPECT_EQ(seen, "sda sda2 ");
    EXPECT_EQ(search("0:0:2:1", true), "0:0:2:1");
    EXPECT_EQ(search("0:0:2:1", false), "none");
    EXPECT_EQ(named("sda")->childServiceMatching(nullptr, true), nullptr);
}

TEST_F(IOService, AnswersNothingOnceInvalid) {
    const auto disk = named("sda");
    tree.set(std::string(kDisk) + "/ro", "0");
    EXPECT_EQ(disk->setValue(Value::string("1"), "ro"), kIOReturnSuccess);
    disk->addNotificationListener(listener("a"));
    disk->invalidate();
    EXPECT_EQ(disk->setValue(Value::string("1"), "ro"), kIOReturnUnsupported);
    EXPECT_EQ(disk->setProperties(Value::dictionary({})), kIOReturnUnsupported);
    EXPECT_FALSE(disk->properties());
    EXPECT_FALSE(disk->valueForProperty("ro"));
    EXPECT_FALSE(disk->path());
    EXPECT_FALSE(disk->serviceClass());
    EXPECT_FALSE(disk->childServices());
    EXPECT_EQ(disk->parentService(), nullptr);
    EXPECT_EQ(QVIOService::initWithService(77), nullptr);
    for (int i = 0; i < 2; ++i) { // again each time
        testing::internal::CaptureStderr();
        EXPECT_EQ(disk->uniqueID(), 0U);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "IORegistryEntryGetRegistryEntryID() returned an error: 268435459x\n");
    }
}

TEST_F(IOService, ThreadsReadItsIDAtOnce) {
    const auto disk = named("sda");
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread(
            [&] { EXPECT_EQ(disk->uniqueID(), QVIOObject(disk->service()).uniqueID()); });
    }
    std::ranges::for_each(threads, &std::thread::join);
}

TEST_F(IOService, TellsListenersMessages) {
    const auto disk = named("sda");
    const auto first = listener("a");
    auto second = listener("b");
    disk->addNotificationListener(first);
    disk->addNotificationListener(first);
    disk->addNotificationListener(second);
    after({"change", kDisk});
    EXPECT_EQ(std::exchange(told, ""), "a:130 b:130 ");
    second.reset();
    after({"bind", kDisk});
    EXPECT_EQ(std::exchange(told, ""), "a:120 a:120 a:130 ");
    const auto handles = registry.size().handles;
    disk->removeNotificationListener(first);
    EXPECT_EQ(registry.size().handles, handles - 2) << "nobody listens any more";
    disk->addNotificationListener(first);
    unplug(kDisk);
    EXPECT_EQ(told, "a:10 ");
}

TEST_F(IOService, ListenersMayEndEachOther) {
    auto disk = named("sda");
    std::vector<std::shared_ptr<Listener>> listeners;
    for (const char* name : {"a", "b"}) { // the first one that hears removes both
        listeners.push_back(std::make_shared<Listener>([&, name](natural_t) {
            told += name;
            for (const auto& each : listeners) {
                disk->removeNotificationListener(each);
            }
        }));
    }
    for (const auto& each : listeners) {
        disk->addNotificationListener(each);
    }
    after({"change", kDisk});
    EXPECT_EQ(std::exchange(told, ""), "a");
    listeners = {std::make_shared<Listener>([&](natural_t) {
        told += "last";
        disk.reset();
    })};
    disk->addNotificationListener(listeners.front());
    after({"bind", kDisk});
    EXPECT_EQ(told, "last");
}

} // namespace
} // namespace qv::test
