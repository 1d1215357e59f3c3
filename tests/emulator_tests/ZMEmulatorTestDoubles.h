#pragma once

#include <atomic>
#include <string>
#include <thread>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <VemoIMLibCore/VemoIMLibCore.h>

#include "support/ZMTestSupport.h"

// A recorder that lives as long as the modules that record into it: the
// emulator keeps loaded modules for the whole process.
inline ZMEventRecorder& processRecorder() { return *new ZMEventRecorder(); }

// A message content with one field of its own, "text", beside the base fields.
class ZMTestPingMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "EMU:Ping"; }
    static int32_t persistentFlag() { return 3; }

    void decodeWithData(const ZMData& data) override {
        auto dict = dictionaryFromJsonData(data);
        if (!dict) {
            setRawJSONData(data);
            return;
        }
        decodeBaseData(*dict);
        text = zmlib_stringForKey(*dict, "text");
    }
    std::optional<ZMData> encode() const override {
        if (text == "unencodable") return std::nullopt;
        ZMValue dict = encodeBaseData();
        zmlib_setObject(dict, text ? ZMValue(*text) : ZMValue(), "text");
        const std::string json = dict.dump();
        return ZMData(json.begin(), json.end());
    }

    std::optional<std::string> text;
};

// An extension module that records what the core offers it as
// "<name>:<event>:<arguments>" into a recorder, and holds messages when told to.
class ZMTestModule : public VemoIMLibExtensionModule {
public:
    ZMTestModule(std::string name, ZMEventRecorder& events, bool holdsMessages)
        : events(events), name_(std::move(name)), holdsMessages_(holdsMessages) {}
    ~ZMTestModule() override = default;

    // Loaded modules stay with the core for the whole process.
    static ZMTestModule& loadNew(std::string name, ZMEventRecorder& events, bool holdsMessages = false) {
        auto* module = new ZMTestModule(std::move(name), events, holdsMessages);
        ZMCoreEmulator::shared().loadExtensionModule([module]() -> VemoIMLibExtensionModule& { return *module; });
        return *module;
    }

    void destroyModule() override {}
    std::vector<ZMMessageClass> getSignalMessageClassList() override { return {}; }
    bool didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message, bool isOffline) override {
        lastMessage = message;  // read by the test after the delivery's future is ready
        auto* ping = dynamic_cast<ZMTestPingMessage*>(message->content.get());
        events.record(name_ + ":message:" + message->objectName + "," + message->targetId + "," +
                      (ping ? ping->text.value_or("-") : std::string(message->content ? "other" : "none")) +
                      (isOffline ? ",offline" : ""));
        return holdsMessages_;
    }
    void setAppKey(const std::string&) override {}
    void setConfiguration(const ZMValue&) override {}
    void setUserId(const std::string&) override {}
    void setCurrentToken(const std::string&) override {}
    void notifyConnectionStatusChanged(int64_t status) override {
        lastThread = std::this_thread::get_id();
        events.record(name_ + ":status:" + std::to_string(status));
    }
    void notifyLogoutEvent() override { events.record(name_ + ":logout"); }

    ZMEventRecorder& events;
    std::atomic<std::thread::id> lastThread{};
    std::shared_ptr<ZMMessage> lastMessage;

private:
    std::string name_;
    bool holdsMessages_;
};
