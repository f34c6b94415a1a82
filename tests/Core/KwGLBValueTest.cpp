#include "Kw/KwGLBValue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "Kw/KwModuleEngine.h"

namespace {

TEST(KwGLBValueTest, NamesAreExactAndGoWithTheRelease) {
    EXPECT_EQ(g_KwGetGLBValue("speed"), 0u);
    g_KwSetGLBValue("speed", 5);
    g_KwSetGLBValue("Speed", 7);
    g_KwSetGLBValue("speed", 0xFFFFFFFFu);
    g_KwSetGLBValue(nullptr, 1);
    EXPECT_EQ(g_KwGetGLBValue("speed"), 0xFFFFFFFFu);
    EXPECT_EQ(g_KwGetGLBValue("Speed"), 7u);
    EXPECT_EQ(g_KwGetGLBValue("spee"), 0u);
    EXPECT_EQ(g_KwGetGLBValue(nullptr), 0u);
    Kw_Release();
    EXPECT_EQ(g_KwGetGLBValue("speed"), 0u);
    Kw_Init();
    g_KwSetGLBValue("speed", 1);
    EXPECT_EQ(g_KwGetGLBValue("speed"), 1u);
}

TEST(KwGLBValueTest, SeveralThreadsSetAndGet) {
    std::thread threads[3];
    for (int t = 0; t < 3; ++t) {
        threads[t] = std::thread([t] {
            const std::string own = "thread" + std::to_string(t);
            for (unsigned int i = 1; i < 2000; ++i) {
                g_KwSetGLBValue("shared", i);
                g_KwSetGLBValue(own.c_str(), i);
                ASSERT_EQ(g_KwGetGLBValue(own.c_str()), i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(g_KwGetGLBValue("shared"), 1999u);
}

}  // namespace
