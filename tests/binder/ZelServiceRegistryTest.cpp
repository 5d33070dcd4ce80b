// The service registry shared by the processes of one device root.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include "ZelBinderTestSupport.h"
#include "ZelPeerProcess.h"

using android::BAD_VALUE;
using android::BBinder;
using android::IBinder;
using android::OK;
using android::sp;
using android::String16;

namespace {

String16 name16(const std::string& s) { return String16(s.c_str()); }

bool listed(const std::string& name) {
    for (const String16& entry : android::defaultServiceManager()->listServices()) {
        if (entry == name16(name)) return true;
    }
    return false;
}

class ZelServiceRegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        binderTestRoot();
        mManager = android::defaultServiceManager();
        ASSERT_NE(mManager, nullptr);
    }
    sp<android::IServiceManager> mManager;
};

TEST_F(ZelServiceRegistryTest, AnotherProcessesServiceIsFoundListedAndForgottenWhenItExits) {
    const std::string name = testServiceName();
    {
        ZelPeerProcess server(ZELD_BINDER_TEST_PEER, {"serve", name});
        const sp<IBinder> service = mManager->getService(name16(name));
        ASSERT_NE(service, nullptr);
        EXPECT_NE(service->remoteBinder(), nullptr);
        EXPECT_EQ(mManager->checkService(name16(name)), service);
        EXPECT_TRUE(listed(name));
        server.kill(SIGKILL);
        server.wait();
    }
    EXPECT_EQ(mManager->checkService(name16(name)), nullptr);
    EXPECT_FALSE(listed(name));

    // A new owner takes the name over.
    ZelPeerProcess again(ZELD_BINDER_TEST_PEER, {"serve", name});
    const sp<IBinder> service = mManager->getService(name16(name));
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->pingBinder(), OK);
}

TEST_F(ZelServiceRegistryTest, ALocalServiceIsItselfAndTheLastRegistrationWins) {
    const std::string name = testServiceName();
    sp<IBinder> first = new BBinder();
    sp<IBinder> second = new BBinder();
    ASSERT_EQ(mManager->addService(name16(name), first), OK);
    EXPECT_EQ(mManager->checkService(name16(name)), first);
    ASSERT_EQ(mManager->addService(name16(name), second), OK);
    EXPECT_EQ(mManager->getService(name16(name)), second);
    EXPECT_TRUE(listed(name));
}

TEST_F(ZelServiceRegistryTest, AMissingNameIsNull) {
    EXPECT_EQ(mManager->checkService(name16(testServiceName())), nullptr);
    // getService gives up after a bounded wait.
    sp<com::ostrel::zeld::test::IZelTestService> out;
    EXPECT_EQ(android::getService(name16(testServiceName()), &out), android::NAME_NOT_FOUND);
}

TEST_F(ZelServiceRegistryTest, NamesAreCheckedAtTheBoundaries) {
    sp<IBinder> object = new BBinder();
    EXPECT_EQ(mManager->addService(name16(std::string(127, 'a')), object), OK);
    EXPECT_EQ(mManager->addService(name16(std::string(128, 'a')), object), BAD_VALUE);
    EXPECT_EQ(mManager->addService(name16(""), object), BAD_VALUE);
    EXPECT_EQ(mManager->addService(name16("with space"), object), BAD_VALUE);
    EXPECT_EQ(mManager->addService(name16(".."), object), BAD_VALUE);
    EXPECT_EQ(mManager->addService(name16("null.service"), nullptr), BAD_VALUE);
    EXPECT_EQ(mManager->checkService(name16(std::string(128, 'a'))), nullptr);

    // Slashes and a leading dot are fine and come back unchanged.
    for (const std::string name : {"vendor.zeld/default", ".hidden.service"}) {
        ASSERT_EQ(mManager->addService(name16(name), object), OK) << name;
        EXPECT_EQ(mManager->checkService(name16(name)), object) << name;
        EXPECT_TRUE(listed(name)) << name;
    }
}

TEST_F(ZelServiceRegistryTest, TheEndpointDirectoryIsPrivateAndKeepsNoSocketsOfExitedProcesses) {
    struct stat st;
    ASSERT_EQ(stat(binderTestRoot().at("/dev/binder").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    const std::string name = testServiceName();
    ZelPeerProcess server(ZELD_BINDER_TEST_PEER, {"serve", name});
    ASSERT_NE(mManager->getService(name16(name)), nullptr);
    auto countSockets = [] {
        size_t n = 0;
        for (const auto& entry : std::filesystem::directory_iterator(binderTestRoot().at("/dev/binder"))) {
            n += entry.is_socket();
        }
        return n;
    };
    const size_t before = countSockets();
    for (int i = 0; i < 5; ++i) {
        ZelPeerProcess client(ZELD_BINDER_TEST_PEER, {"call", name, "1"});
        EXPECT_EQ(client.wait(), 0);
    }
    EXPECT_EQ(countSockets(), before);
}

TEST(ZelServiceRegistryDeathTest, NoServiceManagerWhenTheRootCannotHoldEndpoints) {
    // A fresh process: the runtime goes online once, on the root it first sees.
    EXPECT_EXIT(
            {
                const std::string file = binderTestRoot().at("/not-a-directory");
                std::ofstream(file) << "x";
                setenv("ZELD_ROOT", file.c_str(), 1);
                _exit(android::defaultServiceManager() == nullptr ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "");
}

}  // namespace
