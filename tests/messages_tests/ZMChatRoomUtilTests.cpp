// JSON text for log lines and the notify-event models.

#include <gtest/gtest.h>

#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

namespace {

ZMEmulatedLogger& logger() { return ZMCoreEmulator::shared().logger(); }

ZMValue binaryValue() { return ZMValue::binary({0x01, 0x02}); }

TEST(ChatRoomUtilJSONTextTest, NothingToPrintGivesEmptyTextWithoutLog) {
    struct Case {
        const char* name;
        ZMValue dict;   // given to stringFromDict
        ZMValue array;  // given to stringFromArray
    };
    const Case cases[] = {
        {"null", ZMValue(), ZMValue()},
        {"empty", ZMValue::object(), ZMValue::array()},
        {"wrong_kind", ZMValue::array({"a"}), ZMValue{{"a", 1}}},
        {"scalar", ZMValue("text"), ZMValue(5)},
        {"binary_inside", ZMValue{{"d", binaryValue()}}, ZMValue::array({"a", binaryValue()})},
        {"binary_nested", ZMValue{{"d", {{"e", binaryValue()}}}}, ZMValue::array({ZMValue::array({binaryValue()})})},
        {"binary_top_level", binaryValue(), binaryValue()},
    };
    for (const Case& c : cases) {
        logger().clear();
        EXPECT_EQ(ZMChatRoomUtil::stringFromDict(c.dict), "") << c.name;
        EXPECT_EQ(ZMChatRoomUtil::stringFromArray(c.array), "") << c.name;
        EXPECT_TRUE(logger().lines().empty()) << c.name;
    }
}

TEST(ChatRoomUtilJSONTextTest, PrintsIndentedMultiLineJSON) {
    const ZMValue inputs[] = {ZMValue{{"key", "value"}}, ZMValue::array({"k1"}),
                              ZMValue{{"a", 1}, {"b", {{"c", ZMValue::array({true, nullptr, 2.5})}}}}};
    for (const ZMValue& input : inputs) {
        std::string text = input.is_object() ? ZMChatRoomUtil::stringFromDict(input)
                                             : ZMChatRoomUtil::stringFromArray(input);
        ASSERT_NE(text.find('\n'), std::string::npos) << text;
        // Every member line is indented under its bracket.
        EXPECT_TRUE(text.find("\n ") != std::string::npos || text.find("\n\t") != std::string::npos) << text;
        EXPECT_EQ(ZMValue::parse(text), input);
    }
}

// A string that is not UTF-8 passes the validity test but makes the writer
// raise; the helper logs the exception and answers "".
TEST(ChatRoomUtilJSONTextTest, WriterExceptionIsLoggedAndGivesEmptyText) {
    const ZMValue badDict{{"key", "v\xff"}};
    const ZMValue badArray = ZMValue::array({"ok", "\xc3"});

    auto descriptionOf = [](const ZMValue& value) {
        try {
            ZMJSONSerialization::dataWithJSONObject(value, true);
        } catch (const ZMPlatformException& exception) {
            return exception.description();
        }
        ADD_FAILURE() << "the writer accepted invalid UTF-8";
        return std::string();
    };

    logger().clear();
    EXPECT_EQ(ZMChatRoomUtil::stringFromDict(badDict), "");
    EXPECT_EQ(ZMChatRoomUtil::stringFromArray(badArray), "");
    const std::vector<ZMLogLine> expected = {
        {3, 1024, "ZMChatRoomUtil.cpp", "ZMChatRoomUtil stringFromDict exception:" + descriptionOf(badDict)},
        {3, 1024, "ZMChatRoomUtil.cpp", "ZMChatRoomUtil stringFromArray exception:" + descriptionOf(badArray)},
    };
    EXPECT_EQ(logger().lines(), expected);
}

TEST(ChatRoomUtilModelTest, NullMessageGivesBlankEvent) {
    auto sync = ZMChatRoomUtil::modelWithSyncMessage(nullptr);
    auto block = ZMChatRoomUtil::modelWithBlockMessage(nullptr);
    auto ban = ZMChatRoomUtil::modelWithBanMessage(nullptr);
    ASSERT_TRUE(sync && block && ban);

    EXPECT_FALSE(sync->chatroomId || sync->extra);
    EXPECT_EQ(sync->status | sync->reason | sync->time, 0);
    EXPECT_FALSE(block->chatroomId || block->extra);
    EXPECT_EQ(block->operateType | block->durationTime | block->operateTime, 0);
    EXPECT_TRUE(block->userIdList.is_null());
    EXPECT_FALSE(ban->chatroomId || ban->extra);
    EXPECT_EQ(ban->banType | ban->durationTime | ban->operateTime, 0);
    EXPECT_TRUE(ban->userIdList.is_null());
}

ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }

// Each conversion copies every field, takes the extra from the message base,
// and hands out a new event each time.
TEST(ChatRoomUtilModelTest, CopiesFieldsIntoDistinctEvents) {
    auto sync = std::make_shared<ZMChatRoomSyncMessage>();
    auto block = std::make_shared<ZMChatRoomMemberBlockMessage>();
    auto ban = std::make_shared<ZMChatRoomMemberBanMessage>();
    auto decode = [](ZMMessageContent& message, const std::string& payload) {
        message.decodeWithData(ZMData(payload.begin(), payload.end()));
    };
    decode(*sync, R"({"chatroomId":"r1","status":1,"reason":2,"time":1700000000001,"extra":"se"})");
    decode(*block, R"({"chatroomId":"r2","operateType":3,"durationTime":4,"operateTime":5,"userList":["u1"],"extra":"be"})");
    decode(*ban, R"({"chatroomId":"r3","operateType":6,"durationTime":7,"operateTime":8,"userList":["u3"],"extra":"xe"})");

    auto s1 = ZMChatRoomUtil::modelWithSyncMessage(sync), s2 = ZMChatRoomUtil::modelWithSyncMessage(sync);
    auto b1 = ZMChatRoomUtil::modelWithBlockMessage(block), b2 = ZMChatRoomUtil::modelWithBlockMessage(block);
    auto n1 = ZMChatRoomUtil::modelWithBanMessage(ban), n2 = ZMChatRoomUtil::modelWithBanMessage(ban);
    EXPECT_NE(s1, s2);
    EXPECT_NE(b1, b2);
    EXPECT_NE(n1, n2);
    for (const auto& e : {s1, s2}) {
        EXPECT_EQ((ZMValue{text(e->chatroomId), e->status, e->reason, e->time, text(e->extra)}),
                  ZMValue::parse(R"(["r1",1,2,1700000000001,"se"])"));
    }
    for (const auto& e : {b1, b2}) {
        EXPECT_EQ((ZMValue{text(e->chatroomId), e->operateType, e->durationTime, e->operateTime, e->userIdList,
                           text(e->extra)}),
                  ZMValue::parse(R"(["r2",3,4,5,["u1"],"be"])"));
    }
    // An event belongs to its observer: changing one leaves the other alone.
    n1->userIdList.push_back("intruder");
    EXPECT_EQ((ZMValue{text(n2->chatroomId), n2->banType, n2->durationTime, n2->operateTime, n2->userIdList,
                       text(n2->extra)}),
              ZMValue::parse(R"(["r3",6,7,8,["u3"],"xe"])"));
    EXPECT_EQ(ban->userIdList, ZMValue::array({"u3"}));
}

}  // namespace
