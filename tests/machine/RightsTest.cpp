// Tools and steps have root's rights, and nobody else gets any through them.

#include <fmt/core.h>

#include "machine/Machine.h"
#include <filesystem>

namespace qv::test {
namespace {

using testing::StartsWith;

struct Tool {
    std::string name;
    std::string command; ///< as root's shell would take it
    std::string check;   ///< whether it was done
};

// Packages and installers do this, with the network and the kernel as well.
const std::vector<Tool> kTools = {
    {"apt-get",
     "apt-get install -y -o Dir::Etc::sourcelist=/dev/null -o "
     "Dir::Etc::sourceparts=/dev/null /srv/sample.deb",
     "test -f /opt/sample/file"},
    {"dpkg", "dpkg --purge sample", "test ! -e /opt/sample/file"},
    {"curl", "curl -sSf -o /opt/fetched http://127.0.0.1:8123/sample.deb",
     "cmp /opt/fetched /srv/sample.deb"},
    {"useradd", "useradd --system --user-group sampled", "id sampled"},
    {"systemctl", "systemctl enable --now sample.socket", "systemctl is-active sample.socket"},
    {"mount", "mount -t tmpfs sample /mnt && touch /mnt/file", "test -f /mnt/file"},
    {"mknod", "mknod /dev/sample c 1 3", "test -c /dev/sample"},
    {"depmod", "depmod 0.0.0-sample", "test -f /usr/lib/modules/0.0.0-sample/modules.dep"},
    {"kernel settings", "echo 1 >/proc/sys/net/ipv4/ip_forward",
     "grep -q 1 /proc/sys/net/ipv4/ip_forward"},
    {"ip", "ip link add sample type dummy || ip link add sample type veth", "ip link show sample"},
    {"unshare", "unshare --mount --net true", "true"},
    {"setcap", "cp /bin/true /opt/raw && setcap cap_net_raw+ep /opt/raw",
     "getcap /opt/raw | grep cap_net_raw"},
    {"update-alternatives", "update-alternatives --install /usr/bin/sample sample /bin/true 10",
     "test -x /usr/bin/sample"},
    {"ldconfig", "ldconfig", "true"},
    {"a daemon", "setsid sleep 600 & echo $! >/run/daemon", "kill -0 $(cat /run/daemon)"},
};

TEST(Tools, DoAllThatRootMay) {
    ASSERT_EQ(shell("set -e; mkdir -p /srv/sample/DEBIAN /srv/sample/opt/sample; cd /srv\n"
                    "printf 'Package: sample\\nVersion: 1\\nArchitecture: all\\nMaintainer: x "
                    "<x@example.com>\\nDescription: sample\\n' >sample/DEBIAN/control\n"
                    "echo content >sample/opt/sample/file; dpkg-deb --build sample\n"
                    "mkdir -p /usr/lib/modules/0.0.0-sample\n"
                    "printf '[Socket]\\nListenStream=/run/sample\\nAccept=yes\\n[Install]\\n"
                    "WantedBy=sockets.target\\n' >/etc/systemd/system/sample.socket\n"
                    "touch /etc/systemd/system/sample@.service")
                  .status,
              0);
    const StartedProgram server(
        ProgramStart{.command = {"/usr/bin/python3", "-m", "http.server", "--bind", "127.0.0.1",
                                 "--directory", "/srv", "8123"}});
    EXPECT_EQ(shell("for i in {1..100}; do (</dev/tcp/127.0.0.1/8123) && exit 0; sleep 0.1; done; "
                    "exit 1")
                  .status,
              0);
    for (const Tool& tool : kTools) {
        EXPECT_THAT(session(scriptFile(shellStep("{ " + tool.command + "; } >/run/output 2>&1"))),
                    StartsWith("ok "))
            << tool.name << ": " << contentOf("/run/output");
        EXPECT_EQ(shell(tool.check).status, 0) << tool.name << ": " << contentOf("/run/output");
    }
}

TEST(Rules, SeeTheMachineAsItIsNow) {
    EXPECT_THAT(
        session(scriptFile(shellStep("echo VERSION_ID=41.2 >/usr/lib/os-release") +
                           R"({ operation = 17; arg1 = "version.os == '41.2.0' AND )"
                           R"(${iokit(do=exists;matchStrBSD Name=lo;x)} == YES"; },)"
                           R"({ operation = 7; URL = "file:///srv/seen"; }, { operation = 19; })")),
        StartsWith("ok "));
    EXPECT_EQ(shell("test -f /srv/seen").status, 0);
}

TEST(Steps, ReachDevicesAndModules) {
    EXPECT_THAT(
        session(scriptFile(
            R"({ operation = 5; fromURL = "file:///dev/null"; toURL = "file:///dev/other"; },)"
            R"({ operation = 13; URL = "file:///dev/other"; arg1 = 384; },)"
            R"({ operation = 7; URL = "file:///usr/lib/modules/touched"; })")),
        StartsWith("ok "));
    EXPECT_EQ(shell("test -c /dev/other && test -f /usr/lib/modules/touched && rm "
                    "/usr/lib/modules/touched")
                  .status,
              0);
}

// Tests every place where the attacker's link may stand, in each operation that follows links.
TEST(Steps, FollowNoLinkOfUserToOthersItems) {
    const std::string prepare =
        "rm -rf /srv/canary ~attacker/tree; mkdir -m 0700 /srv/canary; "
        "install -m 0600 /dev/null /srv/canary/file; touch -d 2001-01-01 /srv/canary/file;"
        "setpriv --reuid=1002 --regid=1002 --clear-groups bash -c '"
        "mkdir -p ~attacker/tree/inner; cd ~attacker/tree; ln -s /srv/canary/file last; "
        "ln -s /srv/canary way; ln -s /srv/canary/new dangling; ln -s last chain; touch own; "
        "ln -s own good'";
    const std::string state = "stat -c '%n %u %g %a %Y' /srv/canary /srv/canary/*";
    const auto item = [](const std::string& name) {
        return "\"file:///home/attacker/tree/" + name + "\"";
    };
    for (const char* place : {"", "last", "way/file", "dangling", "chain", "way"}) {
        for (const std::string& step : {
                 "operation = 12; URL = " + item(place) + "; arg1 = 1002; arg2 = 1002; arg3 = YES;",
                 "operation = 13; URL = " + item(place) + "; arg1 = 511; arg2 = YES;",
                 "operation = 7; URL = " + item(place) + ";",
                 "operation = 4; fromURL = " + item(place) +
                     "; toURL = \"file:///home/attacker/moved\"; arg1 = YES; arg2 = NO;",
                 "operation = 5; fromURL = " + item(place) +
                     "; toURL = \"file:///home/attacker/copied\"; arg1 = YES; arg2 = YES;",
             }) {
            ASSERT_EQ(shell("rm -rf ~attacker/moved ~attacker/copied; " + prepare).status, 0);
            const std::string before = shell(state).output;
            session(scriptFile("{ " + step + " }"));
            EXPECT_EQ(shell(state).output, before) << step;
        }
    }
    // His own items may be behind his links, and root's links lead anywhere.
    ASSERT_EQ(shell(prepare + "; ln -sfn /srv/canary/file /srv/link").status, 0);
    EXPECT_THAT(session(scriptFile("{ operation = 13; URL = " + item("good") +
                                   "; arg1 = 256; },"
                                   R"({ operation = 13; URL = "file:///srv/link"; arg1 = 256; })")),
                StartsWith("ok "));
    EXPECT_EQ(shell("stat -c %a ~attacker/tree/own /srv/canary/file").output, "400\n400\n");
}

TEST(Command, WritesIntoDevices) {
    EXPECT_EQ(shell("cd /tmp; printf '{a = 1;}' >list; qvcatalog plist --to xml -o /dev/null list")
                  .status,
              0);
    EXPECT_EQ(shell("test -c /dev/null && echo x >/dev/null").status, 0);
}

} // namespace
} // namespace qv::test
