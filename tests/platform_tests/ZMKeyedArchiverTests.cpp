#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMKeyedArchiver.h>
#include <Platform/ZMKeyedUnarchiver.h>

namespace {

ZMValue deeplyNested(int depth) {
    ZMValue value = "leaf";
    for (int i = 0; i < depth; ++i) {
        ZMValue wrapper = ZMValue::array();
        wrapper.push_back(std::move(value));
        value = std::move(wrapper);
    }
    return value;
}

TEST(ZMKeyedArchiverTest, EveryValueRoundTripsUnderItsKey) {
    const ZMValue objects[] = {
        nullptr,
        true,
        std::numeric_limits<int64_t>::min(),
        std::numeric_limits<uint64_t>::max(),
        -0.5,
        "",
        "not UTF-8: \xFF\xFE\xC0\xAF",
        {{"nested", {1, "two", {{"three", 3.25}}}}, {"\xFF key", nullptr}},
        ZMValue::binary({0, 1, 255}, 7),
        deeplyNested(100),
    };
    ZMKeyedArchiver archiver;
    for (size_t i = 0; i < std::size(objects); ++i) archiver.encodeObject(objects[i], "object" + std::to_string(i));
    archiver.encodeInteger(std::numeric_limits<int64_t>::min(), "min");
    archiver.encodeInteger(std::numeric_limits<int64_t>::max(), "max");

    ZMKeyedUnarchiver unarchiver(archiver.encodedData());
    ASSERT_TRUE(unarchiver.isValid());
    for (size_t i = 0; i < std::size(objects); ++i) {
        SCOPED_TRACE(objects[i].dump(-1, ' ', false, ZMValue::error_handler_t::replace));
        const std::string key = "object" + std::to_string(i);
        EXPECT_TRUE(unarchiver.containsValueForKey(key));
        const ZMValue decoded = unarchiver.decodeObjectForKey(key);
        EXPECT_EQ(decoded, objects[i]);
        EXPECT_EQ(decoded.type(), objects[i].type());
        EXPECT_EQ(unarchiver.decodeIntegerForKey(key), 0);  // an object is not an integer
    }
    EXPECT_EQ(unarchiver.decodeIntegerForKey("min"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(unarchiver.decodeIntegerForKey("max"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(unarchiver.decodeObjectForKey("max"), nullptr);  // an integer is not an object
    EXPECT_FALSE(unarchiver.containsValueForKey("missing"));
    EXPECT_EQ(unarchiver.decodeObjectForKey("missing"), nullptr);
}

TEST(ZMKeyedArchiverTest, LaterWriteUnderAKeyReplacesTheEarlierOfAnyKind) {
    ZMKeyedArchiver archiver;
    archiver.encodeInteger(5, "changed to object");
    archiver.encodeObject({{"a", 1}}, "changed to object");
    archiver.encodeObject("text", "changed to integer");
    archiver.encodeInteger(9, "changed to integer");

    ZMKeyedUnarchiver unarchiver(archiver.encodedData());
    ASSERT_TRUE(unarchiver.isValid());
    EXPECT_EQ(unarchiver.decodeObjectForKey("changed to object"), (ZMValue{{"a", 1}}));
    EXPECT_EQ(unarchiver.decodeIntegerForKey("changed to object"), 0);
    EXPECT_EQ(unarchiver.decodeIntegerForKey("changed to integer"), 9);
    EXPECT_EQ(unarchiver.decodeObjectForKey("changed to integer"), nullptr);
}

TEST(ZMKeyedArchiverTest, BytesThatAreNotAnArchiveGiveAnEmptyInvalidReader) {
    ZMKeyedArchiver archiver;
    archiver.encodeObject({{"k", {1, 2, "x"}}}, "object");
    archiver.encodeInteger(3, "integer");
    const ZMData good = archiver.encodedData();

    std::vector<ZMData> bad = {{}, {'n', 'o', 'p', 'e'}, {'{', '}'}};
    for (size_t size = 0; size < good.size(); ++size) bad.emplace_back(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    ZMData trailing = good;
    trailing.push_back(0);
    bad.push_back(trailing);
    ZMKeyedArchiver deep;
    deep.encodeObject(deeplyNested(600), "deep");
    bad.push_back(deep.encodedData());

    for (const auto& data : bad) {
        SCOPED_TRACE("size " + std::to_string(data.size()));
        ZMKeyedUnarchiver unarchiver(data);
        EXPECT_FALSE(unarchiver.isValid());
        EXPECT_FALSE(unarchiver.containsValueForKey("object"));
        EXPECT_FALSE(unarchiver.containsValueForKey("integer"));
        EXPECT_EQ(unarchiver.decodeIntegerForKey("integer"), 0);
    }
    EXPECT_TRUE(ZMKeyedUnarchiver(good).isValid());
}

}  // namespace
