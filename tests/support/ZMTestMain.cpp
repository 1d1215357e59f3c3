// The main of every test program. ctest runs each test in a process of its
// own, but a program run directly runs all of its tests (or those of a
// --gtest_filter) in one process, where the module's and the emulator's
// singletons live on from test to test. A listener resets them before every
// test, as much as the program links: the module and the emulator through the
// test kit (ZM_TEST_RESET_KIT), the emulator alone (ZM_TEST_RESET_EMULATOR),
// or nothing for the platform tests.

#include <gtest/gtest.h>

#if defined(ZM_TEST_RESET_KIT)
#include <ZMChatRoomTestKit/ZMChatRoomTestKit.h>
#elif defined(ZM_TEST_RESET_EMULATOR)
#include <CoreEmulator/ZMCoreEmulator.h>
#endif

namespace {

class ResetBeforeEachTest : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo& /*test*/) override {
        // Runs before the test's fixture is made; a failure counts against the
        // test that was about to start.
#if defined(ZM_TEST_RESET_KIT)
        EXPECT_TRUE(ZMChatRoomTestKit::reset()) << "the previous test left work that did not finish";
#elif defined(ZM_TEST_RESET_EMULATOR)
        EXPECT_TRUE(ZMCoreEmulator::shared().reset()) << "the previous test left deliveries that did not finish";
#endif
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
#if defined(ZM_TEST_RESET_KIT) || defined(ZM_TEST_RESET_EMULATOR)
    ::testing::UnitTest::GetInstance()->listeners().Append(new ResetBeforeEachTest());
#endif
    return RUN_ALL_TESTS();
}
