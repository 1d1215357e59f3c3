// The texts of log lines: JSON text of values, and the operation tags.

#include <gtest/gtest.h>

#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMJSONSerialization.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

#include "support/ZMNestedValues.h"

namespace {

ZMEmulatedLogger& logger() { return ZMCoreEmulator::shared().logger(); }

// Nothing to print, or nothing the platform's writer would write: "" and no
// line. The writer's refusals include text that is not UTF-8 (in a value or a
// key, at any depth) and nesting deeper than the platform's parser reads
// (512 levels), which is refused before anything walks the value recursively.
TEST(ChatRoomUtilJSONTextTest, NothingToPrintGivesEmptyTextWithoutLog) {
    const ZMValue binary = ZMValue::binary({0x01, 0x02});
    struct Case { const char* name; ZMValue dict, array; };  // given to stringFromDict, stringFromArray
    const Case cases[] = {
        {"null", ZMValue(), ZMValue()},
        {"empty", ZMValue::object(), ZMValue::array()},
        {"scalar", ZMValue("text"), ZMValue(5)},
        {"binary_inside", ZMValue{{"d", binary}}, ZMValue::array({"a", binary})},
        {"binary_nested", ZMValue{{"d", {{"e", binary}}}}, ZMValue::array({ZMValue::array({binary})})},
        {"binary_top_level", binary, binary},
        {"invalid_utf8_value", ZMValue{{"key", "v\xff"}}, ZMValue::array({"ok", "\xc3"})},
        {"invalid_utf8_key", ZMValue{{"k\xff", "v"}}, ZMValue::array({ZMValue{{"\xed\xa0\x80", 1}}})},
        {"invalid_utf8_nested", ZMValue{{"d", {{"e", ZMValue::array({"\xf8"})}}}}, ZMValue::array({ZMValue::array({"\x80"})})},
        {"nested_beyond_parser_limit", nestedValue(513, true), nestedValue(513, false)},
    };
    for (const Case& c : cases) {
        logger().clear();
        EXPECT_EQ(ZMChatRoomUtil::stringFromDict(c.dict), "") << c.name;
        EXPECT_EQ(ZMChatRoomUtil::stringFromArray(c.array), "") << c.name;
        EXPECT_TRUE(logger().lines().empty()) << c.name;
    }
}

// At the parser's limit the text is written, and reads back as the value.
TEST(ChatRoomUtilJSONTextTest, PrintsNestingUpToTheParserLimit) {
    for (bool dictionaries : {false, true}) {
        const ZMValue limit = nestedValue(512, dictionaries);
        const std::string text = ZMChatRoomUtil::stringFromDict(limit);
        ASSERT_FALSE(text.empty()) << dictionaries;
        EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(ZMData(text.begin(), text.end())), limit) << dictionaries;
    }
}

TEST(ChatRoomUtilJSONTextTest, PrintsIndentedMultiLineJSON) {
    const ZMValue inputs[] = {ZMValue{{"key", "value"}}, ZMValue::array({"k1"}),
                              ZMValue{{"a", 1}, {"b", {{"c", ZMValue::array({true, nullptr, 2.5})}}}}};
    for (const ZMValue& input : inputs) {
        // The two helpers differ only in their exception line: each prints either kind.
        auto text = ZMChatRoomUtil::stringFromDict(input);
        EXPECT_EQ(ZMChatRoomUtil::stringFromArray(input), text);
        // Several lines, every member line indented under its bracket.
        EXPECT_TRUE(text.find("\n ") != std::string::npos || text.find("\n\t") != std::string::npos) << text;
        EXPECT_EQ(ZMValue::parse(text), input);
    }
}

// The log-line tests name the tags through their constants, so a slip in a
// tag's text shows only here.
TEST(ChatRoomLogCommonTagTest, EveryConstantHasItsText) {
    const std::vector<std::string> constants = {
        ZM_A_JION_CHATROOM_T, ZM_A_JION_CHATROOM_R, ZM_A_QUIT_CHATROOM_T, ZM_A_QUIT_CHATROOM_R, ZM_A_SET_CHATROOM_KV_T,
        ZM_A_SET_CHATROOM_KV_R, ZM_A_SET_CHATROOM_KVS_R, ZM_A_GET_CHATROOM_KV_T, ZM_A_GET_CHATROOM_KV_R,
        ZM_A_GET_CHATROOM_BATCH_KV_T, ZM_A_GET_CHATROOM_BATCH_KV_R, ZM_A_GET_CHATROOM_ALL_KV_T, ZM_A_GET_CHATROOM_ALL_KV_R,
        ZM_A_REMOVE_CHATROOM_KV_T, ZM_A_REMOVE_CHATROOM_KV_R, ZM_A_REMOVE_CHATROOM_KVS_T, ZM_A_REMOVE_CHATROOM_KVS_R,
        ZM_L_REJION_CHATROOM_T, ZM_L_REJION_CHATROOM_R, ZM_L_SYNC_CHATROOM_KV_O, ZM_L_UPDATE_CHATROOM_FILTER_KV_O,
        ZM_L_REMOVE_CHATROOM_FILTER_KV_O, ZM_L_UPDATE_CHATROOM_KV_O, ZM_L_REMOVE_CHATROOM_KV_O,
        ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, ZM_L_DETECT_CHATROOM_S};
    EXPECT_EQ(constants,
              (std::vector<std::string>{
                  "A-join_chatroom-T", "A-join_chatroom-R", "A-quit_chatroom-T", "A-quit_chatroom-R",
                  "A-set_chatroom_kv-T", "A-set_chatroom_kv-R", "A-set_chatroom_kvs-R", "A-get_chatroom_kv-T",
                  "A-get_chatroom_kv-R", "A-get_chatroom_batch_kv-T", "A-get_chatroom_batch_kv-R",
                  "A-get_chatroom_all_kv-T", "A-get_chatroom_all_kv-R", "A-remove_chatroom_kv-T", "A-remove_chatroom_kv-R",
                  "A-remove_chatroom_kvs-T", "A-remove_chatroom_kvs-R", "L-rejoin_chatroom-T", "L-rejoin_chatroom-R",
                  "L-sync_chatroom_kv-O", "L-update_chatroom_filter_kv-O", "L-remove_chatroom_filter_kv-O",
                  "L-update_chatroom_kv-O", "L-remove_chatroom_kv-O", "L-get_chatroom_filter_all_kv-O",
                  "L-detect_chatroom-S"}));
    // A diagnostic line's tag is the writing file's base name, with or without a directory.
    static_assert(ZMSourceFileBaseName("/a/b/ZMChatRoomUtil.cpp") == "ZMChatRoomUtil.cpp");
    static_assert(ZMSourceFileBaseName("ZMChatRoomClient.cpp") == "ZMChatRoomClient.cpp");
}

}  // namespace
