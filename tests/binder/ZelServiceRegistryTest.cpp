// The service registry shared by the processes of one device root.
#include <sys/stat.h>

#include <algorithm>

#include <binder/Binder.h>

#include "ZelBinderTestSupport.h"

using android::BAD_VALUE;
using android::IBinder;
using android::OK;
using android::sp;
using android::String16;

namespace {

String16 name16(const std::string& s) { return String16(s.c_str()); }

bool listed(const std::string& name) {
    const auto names = android::defaultServiceManager()->listServices();
    return std::find(names.begin(), names.end(), name16(name)) != names.end();
}

class ZelServiceRegistryTest : public ::testing::Test {
protected:
    const std::string mName = testServiceName();
    const sp<android::IServiceManager> mManager = android::defaultServiceManager();
};

TEST_F(ZelServiceRegistryTest, AnotherProcessesServiceIsFoundListedAndForgottenWhenItExits) {
    struct stat st;  // endpoints live in a directory only we can enter
    ASSERT_EQ(stat(binderTestRoot().at("/dev/binder").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    for (int owner = 0; owner < 2; ++owner) {  // a new owner takes the name over
        {
            ZelPeerProcess server(ZELD_BINDER_TEST_PEER, {"serve", mName});
            const sp<IBinder> service = mManager->getService(name16(mName));
            ASSERT_NE(service, nullptr);
            EXPECT_NE(service->remoteBinder(), nullptr);
            EXPECT_EQ(service->pingBinder(), OK);
            EXPECT_EQ(mManager->checkService(name16(mName)), service);
            EXPECT_TRUE(listed(mName));
        }
        EXPECT_EQ(mManager->checkService(name16(mName)), nullptr);
        EXPECT_FALSE(listed(mName));
    }
}

TEST_F(ZelServiceRegistryTest, NamesAreCheckedAtTheBoundaries) {
    sp<IBinder> object = new android::BBinder();
    for (const std::string& bad : {std::string(128, 'a'), std::string(), std::string("with space"), std::string("..")}) {
        EXPECT_EQ(mManager->addService(name16(bad), object), BAD_VALUE) << bad;
    }
    EXPECT_EQ(mManager->checkService(name16(std::string(128, 'a'))), nullptr);
    EXPECT_EQ(mManager->addService(name16("null.service"), nullptr), BAD_VALUE);
    // The longest name, slashes and a leading dot are fine and come back unchanged.
    for (const std::string& name : {std::string(127, 'a'), std::string("vendor.zeld/default"), std::string(".hidden.service")}) {
        ASSERT_EQ(mManager->addService(name16(name), object), OK) << name;
        EXPECT_EQ(mManager->checkService(name16(name)), object) << name;
        EXPECT_TRUE(listed(name)) << name;
    }
    for (const char* name : {"zz.last", "mm.middle", "aa.first", "nn.next", "bb.second"}) {
        ASSERT_EQ(mManager->addService(name16(name), object), OK);
    }
    const auto names = mManager->listServices();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << "listed in name order";
}

}  // namespace
