#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMKeyedArchiver.h>
#include <Platform/ZMKeyedUnarchiver.h>

#include "support/ZMTestSupport.h"

namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

ZMValue deeplyNested(size_t depth) {
    return ZMValue::parse(std::string(depth, '[') + "\"leaf\"" + std::string(depth, ']'));
}

TEST(ZMKeyedArchiverTest, EveryValueRoundTripsUnderItsKeyAndTheLaterWriteOfAnyKindWins) {
    const ZMValue objects[] = {nullptr, true, kMin, std::numeric_limits<uint64_t>::max(), -0.5, "",
                               "not UTF-8: \xFF\xFE\xC0\xAF",
                               {{"nested", {1, "two", {{"three", 3.25}}}}, {"\xFF key", nullptr}},
                               ZMValue::binary({0, 1, 255}, 7), deeplyNested(100)};
    ZMKeyedArchiver archiver;
    archiver.encodeInteger(5, "object1");  // replaced by the object written later
    for (size_t i = 0; i < std::size(objects); ++i) archiver.encodeObject(objects[i], numbered("object", i));
    archiver.encodeInteger(kMin, "min");
    archiver.encodeObject("text", "max");  // replaced by the integer written later
    archiver.encodeInteger(kMax, "max");

    ZMKeyedUnarchiver unarchiver(archiver.encodedData());
    ASSERT_TRUE(unarchiver.isValid());
    for (size_t i = 0; i < std::size(objects); ++i) {
        SCOPED_TRACE(objects[i].dump(-1, ' ', false, ZMValue::error_handler_t::replace));
        const std::string key = numbered("object", i);
        EXPECT_TRUE(unarchiver.containsValueForKey(key));
        const ZMValue decoded = unarchiver.decodeObjectForKey(key);
        EXPECT_EQ(decoded, objects[i]);
        EXPECT_EQ(decoded.type(), objects[i].type());
        EXPECT_EQ(unarchiver.decodeIntegerForKey(key), 0);  // an object is not an integer
    }
    EXPECT_EQ(unarchiver.decodeIntegerForKey("min"), kMin);
    EXPECT_EQ(unarchiver.decodeIntegerForKey("max"), kMax);
    EXPECT_EQ(unarchiver.decodeObjectForKey("max"), nullptr);  // an integer is not an object
    EXPECT_FALSE(unarchiver.containsValueForKey("missing"));
    EXPECT_EQ(unarchiver.decodeObjectForKey("missing"), nullptr);
}

TEST(ZMKeyedArchiverTest, BytesThatAreNotAnArchiveGiveAnEmptyInvalidReader) {
    ZMKeyedArchiver archiver;
    archiver.encodeObject({{"k", {1, 2, "x"}}}, "object");
    archiver.encodeInteger(3, "integer");
    const ZMData good = archiver.encodedData();
    std::vector<ZMData> bad = {{}, {'n', 'o', 'p', 'e'}, {'{', '}'}, good};
    bad.back().push_back(0);  // one byte too many
    for (size_t size = 0; size < good.size(); ++size) bad.emplace_back(good.begin(), good.begin() + ptrdiff_t(size));
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
