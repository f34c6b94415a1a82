#include "Kw/Res/KwStreamShare.h"

#include <string>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "KwResFixture.h"

namespace {

class KwStreamShareTest : public KwResFixture {
protected:
    static std::string Text(KwBuffer* buffer) {
        if (buffer == nullptr) return "(null)";
        return {reinterpret_cast<char*>(buffer->GetData()), buffer->GetUsed()};
    }
};

TEST_F(KwStreamShareTest, TheFirstIdleBufferThatIsLargeEnoughIsUsedAgain) {
    KwStreamShare share(2, 100);
    const std::string small = Put("small", "0123456789");
    const std::string large = Put("large", std::string(500, 'x'));
    KwBuffer* first = share.Open(small.c_str());
    EXPECT_EQ(Text(first), "0123456789");
    EXPECT_EQ(first->GetSize(), 100u);
    KwBuffer* second = share.Open(large.c_str());
    EXPECT_EQ(Text(second), std::string(500, 'x'));
    share.FreeBuffer(second);
    share.FreeBuffer(first);
    // The large one is first now, and what it held before is not part of the text.
    KwBuffer* third = share.Open(Wide(small).c_str());
    EXPECT_EQ(third, second);
    EXPECT_EQ(Text(third), "0123456789");
    share.FreeBuffer(third);
    // The small one is passed over.
    EXPECT_EQ(share.Open(large.c_str()), second);
    share.FreeBuffer(second);
}

TEST_F(KwStreamShareTest, WhatIsTooMuchIsReleased) {
    KwStreamShare share(-5, 0);  // keeps one at least
    const std::string path = Put("a", "text");
    KwBuffer* first = share.Open(path.c_str());
    KwBuffer* second = share.Open(path.c_str());
    second->AddRef();
    share.FreeBuffer(first);
    share.FreeBuffer(second);
    EXPECT_EQ(second->GetRef(), 1);
    second->Release();
    EXPECT_EQ(share.Open(path.c_str()), first);
    first->AddRef();
    share.FreeBuffer(first);
    share.Clear();
    EXPECT_EQ(first->GetRef(), 1);
    first->Release();
    share.FreeBuffer(nullptr);
}

TEST_F(KwStreamShareTest, AFailureGivesTheBufferBack) {
    KwStreamShare share(4, 100);
    KwFile file;
    EXPECT_EQ(share.Open(Path("missing").c_str()), nullptr);
    EXPECT_EQ(share.Open(folder_.string().c_str()), nullptr);
    EXPECT_FALSE(share.Open(Path("missing").c_str(), file));
    EXPECT_TRUE(share.Open(Wide(Put("a", "")).c_str(), file) && file.CanRead());
    KwBuffer* buffer = share.Open(Path("a").c_str());
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetUsed(), 0u);
    EXPECT_EQ(buffer->GetSize(), 100u);
    share.FreeBuffer(buffer);
    KwStreamShare none(1, 0);
    buffer = none.Open(Path("a").c_str());
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetSize(), 1u);
    none.FreeBuffer(buffer);
}

}  // namespace
