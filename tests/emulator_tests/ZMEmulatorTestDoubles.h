#pragma once

#include <atomic>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <VemoIMLibCore/VemoIMLibCore.h>

#include "support/ZMTestSupport.h"

using Strings = std::vector<std::string>;
inline ZMChatRoomPSManager& service() { return ZMKernel::sharedInstance().chatRoomPSManager(); }
inline ZMCoreEmulator& emulator() { return ZMCoreEmulator::shared(); }

// How a recording callback writes each kind of argument.
inline std::string str(int64_t number) { return std::to_string(number); }
inline std::string str(const std::string& text) { return text; }
inline std::string str(const ZMValue& value) { return value.dump(); }
inline std::string str(const std::vector<std::shared_ptr<ZMMessage>>& page) { return std::to_string(page.size()); }

// The thread that runs the tests, where no answer, push or offer to a module may run.
inline const std::thread::id kTestThread = std::this_thread::get_id();

// A callback of any shape: records "<name>:<argument>:<argument>..." into events.
inline auto recording(ZMEventRecorder& events, std::string name) {
    return [&events, name](const auto&... args) {
        EXPECT_NE(std::this_thread::get_id(), kTestThread) << name;
        std::string event = name;
        ((event += ':', event += str(args)), ...);
        events.record(std::move(event));
    };
}

// What one step made the recorder hear, once everything it caused has run.
inline Strings after(ZMEventRecorder& events, const std::function<void()>& step) {
    events.clear();
    step();
    EXPECT_TRUE(emulator().waitUntilIdle());
    return events.events();
}

// A received message content with one field of its own, "text", beside the base fields.
class ZMTestPingMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "EMU:Ping"; }
    static int32_t persistentFlag() { return 3; }
    void decodeWithData(const ZMData& data) override {
        auto dict = dictionaryFromJsonData(data);
        if (!dict) return setRawJSONData(data);
        decodeBaseData(*dict);
        text = zmlib_stringForKey(*dict, "text");
    }
    std::optional<ZMData> encode() const override { return std::nullopt; }  // never sent
    std::optional<std::string> text;
};

// An extension module that records what the core offers it as
// "<name>:<event>:<arguments>", and holds messages when told to.
class ZMTestModule : public VemoIMLibExtensionModule {
public:
    // Loads a new module; loaded modules stay with the core for the whole process.
    static ZMTestModule& loadNew(std::string name, ZMEventRecorder& events, bool holdsMessages = false) {
        auto* module = new ZMTestModule(std::move(name), events, holdsMessages);
        emulator().loadExtensionModule([module]() -> VemoIMLibExtensionModule& {
            EXPECT_EQ(std::this_thread::get_id(), kTestThread);  // the loader runs on the caller's thread
            return *module;
        });
        return *module;
    }
    bool didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message, bool isOffline) override {
        lastMessage = message;  // read by the test after the delivery's future is ready
        auto* ping = dynamic_cast<ZMTestPingMessage*>(message->content.get());
        record("message:" + message->objectName + "," + message->targetId + "," +
               (ping ? ping->text.value_or("-") : std::string(message->content ? "other" : "none")) +
               (isOffline ? ",offline" : ""));
        return holdsMessages_.load();
    }
    // A test that loaded a holding module lets later modules hear messages again once it is done.
    void setHoldsMessages(bool holds) { holdsMessages_ = holds; }
    void notifyConnectionStatusChanged(int64_t status) override { record("status:" + std::to_string(status)); }
    void notifyLogoutEvent() override { record("logout"); }
    void destroyModule() override {}
    std::vector<ZMMessageClass> getSignalMessageClassList() override { return {}; }
    void setAppKey(const std::string&) override {}
    void setConfiguration(const ZMValue&) override {}
    void setUserId(const std::string&) override {}
    void setCurrentToken(const std::string&) override {}

    std::shared_ptr<ZMMessage> lastMessage;

private:
    ZMTestModule(std::string name, ZMEventRecorder& events, bool holds)
        : events_(events), name_(std::move(name)), holdsMessages_(holds) {}
    void record(const std::string& event) { recording(events_, name_ + ":" + event)(); }
    ZMEventRecorder& events_;
    std::string name_;
    std::atomic<bool> holdsMessages_;
};
