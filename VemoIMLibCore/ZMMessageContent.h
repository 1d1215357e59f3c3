#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <typeindex>

#include <VemoIMLibCore/ZMValue.h>

// The base of every message content. A subclass fills its own fields from a
// JSON payload (decodeWithData) and writes them back (encode), and names its
// wire type with the class operations getObjectName() and persistentFlag().
//
// The base fields travel next to the subclass's keys in the same JSON object:
//   "extra"         string   -> extra
//   "user"          object   -> senderUserInfo (for example {"id","name","portrait"})
//   "mentionedInfo" object   -> mentionedInfo
class ZMMessageContent {
public:
    virtual ~ZMMessageContent() = default;

    // Fills the fields from the payload bytes.
    virtual void decodeWithData(const ZMData& data) = 0;
    // The payload bytes, or nothing when the content cannot be serialised.
    virtual std::optional<ZMData> encode() const = 0;

    // Parses bytes as one JSON object; nothing when they are not one.
    static std::optional<ZMValue> dictionaryFromJsonData(const ZMData& data);

    // Keeps payload bytes that could not be decoded.
    void setRawJSONData(ZMData data);
    const std::optional<ZMData>& rawJSONData() const { return rawJSONData_; }

    // Reads the base fields from a parsed payload object.
    void decodeBaseData(const ZMValue& dict);
    // A new dictionary that already holds the base fields that are set.
    ZMValue encodeBaseData() const;

    std::optional<std::string> extra;
    ZMValue senderUserInfo;
    ZMValue mentionedInfo;

private:
    std::optional<ZMData> rawJSONData_;
};

// What the core knows of a message content class: its wire type and how to
// make a blank instance for decoding. Two values are equal when they describe
// the same C++ class.
class ZMMessageClass {
public:
    template <class T>
    static ZMMessageClass of() {
        return ZMMessageClass(typeid(T), T::getObjectName(), T::persistentFlag(),
                              [] { return std::shared_ptr<ZMMessageContent>(std::make_shared<T>()); });
    }

    const std::string& getObjectName() const { return objectName_; }
    int32_t persistentFlag() const { return persistentFlag_; }
    std::shared_ptr<ZMMessageContent> create() const { return factory_(); }
    std::type_index type() const { return type_; }

    bool operator==(const ZMMessageClass& other) const { return type_ == other.type_; }

private:
    ZMMessageClass(std::type_index type, std::string objectName, int32_t persistentFlag,
                   std::function<std::shared_ptr<ZMMessageContent>()> factory)
        : type_(type), objectName_(std::move(objectName)), persistentFlag_(persistentFlag),
          factory_(std::move(factory)) {}

    std::type_index type_;
    std::string objectName_;
    int32_t persistentFlag_;
    std::function<std::shared_ptr<ZMMessageContent>()> factory_;
};
