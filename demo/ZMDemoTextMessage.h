#pragma once

#include <optional>
#include <string>

#include <VemoIMLibCore/ZMMessageContent.h>

// A plain text message of the demo's rooms, as the remote history hands it
// back. Payload: {"content":"hello", base keys...}
class ZMDemoTextMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "ZMDemo:Text"; }

    explicit ZMDemoTextMessage(std::string text = "") : content(std::move(text)) {}

    void decodeWithData(const ZMData& data) override;
    std::optional<ZMData> encode() const override;

    std::string content;
};
