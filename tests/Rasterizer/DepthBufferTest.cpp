#include "Core/Logging/QLM_RaiseError.h"
#include "Rasterizer/QLM_DepthBuffer.h"

#include <gtest/gtest.h>

namespace {

template <class Call> std::string RaisedBy(Call&& call) {
    try {
        call();
    } catch (const QLM_Exception& raised) { return raised.what(); }
    return "";
}

TEST(DepthBuffer, SizesAndClears) {
    QLM_DepthBuffer buffer;
    EXPECT_EQ(buffer.GetDataFloat(), nullptr);
    buffer.SetSize(3, 2);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(buffer.GetDataFloat()[i], 0.0f);
    buffer.GetDataFloat()[5] = 0.75f;
    buffer.SetSize(3, 2);
    EXPECT_EQ(buffer.GetDataFloat()[5], 0.75f) << "an unchanged size keeps the contents";
    buffer.SetSize(2, 3);
    EXPECT_EQ(buffer.GetDataFloat()[5], 0.0f) << "same bytes, other shape: cleared";
    buffer.GetDataFloat()[0] = 1.0f;
    buffer.Clear();
    EXPECT_EQ(buffer.GetDataFloat()[0], 0.0f);
}

TEST(DepthBuffer, TypesAreChecked) {
    QLM_DepthBuffer buffer(QLM_DepthBuffer::Byte);
    buffer.SetSize(4, 4);
    EXPECT_EQ(buffer.GetData(QLM_DepthBuffer::Byte), buffer.GetDataUC());
    EXPECT_EQ(RaisedBy([&] { buffer.GetDataFloat(); }), "Wrong type in QLM_DepthBuffer::GetDataFloat()");
    EXPECT_EQ(RaisedBy([&] { buffer.GetData(QLM_DepthBuffer::Float); }), "Wrong type in QLM_DepthBuffer::GetData()");
    buffer.SetType(QLM_DepthBuffer::Float);
    EXPECT_EQ(buffer.GetDataFloat()[15], 0.0f);
    EXPECT_EQ(RaisedBy([&] { buffer.GetDataUC(); }), "Wrong type in QLM_DepthBuffer::GetDataUC()");

    buffer.GetDataFloat()[3] = 0.5f;
    EXPECT_EQ(RaisedBy([&] { buffer.SetSize(1, 1, 2); }), "Unknown depth buffer type");
    EXPECT_EQ(RaisedBy([] { QLM_DepthBuffer unknown(7); }), "Unknown depth buffer type");
    EXPECT_EQ(buffer.GetDataFloat()[3], 0.5f) << "a refused call changes nothing";
    EXPECT_EQ(buffer.GetWidth(), 4u);
}

} // namespace
