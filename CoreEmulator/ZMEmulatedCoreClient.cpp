#include <CoreEmulator/ZMEmulatedCoreClient.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>

#include <CoreEmulator/ZMEmulatedDispatcher.h>
#include <VemoIMLibCore/ZMFwLog.h>

namespace {

const char* const kLogTag = "ZMEmulatedCoreClient.cpp";

std::string describe(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "(unknown)";
    }
}

// Runs one call into module code; a failure is logged and reported as such
// instead of reaching the emulator's thread.
template <class Call>
bool guarded(const char* what, Call&& call) {
    try {
        call();
        return true;
    } catch (...) {
        ZMFwLog::getInstance().write(2, 1024, kLogTag, "%@ raised an exception: %@", std::string(what),
                                     describe(std::current_exception()));
        return false;
    }
}

int64_t nowMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

ZMCoreClient& ZMCoreClient::sharedCoreClient() { return ZMEmulatedCoreClient::shared(); }

ZMEmulatedCoreClient& ZMEmulatedCoreClient::shared() {
    static auto* client = new ZMEmulatedCoreClient();
    return *client;
}

// ---- ZMCoreClient ------------------------------------------------------------

void ZMEmulatedCoreClient::registerMessageType(const ZMMessageClass& messageClass) {
    std::lock_guard<std::mutex> lock(mutex_);
    registered_.push_back(messageClass);
}

int64_t ZMEmulatedCoreClient::getConnectionStatus() { return connectionStatus_.load(); }

std::optional<ZMData> ZMEmulatedCoreClient::payloadOfMessageContent(const ZMMessageContent& content) {
    if (payloadEncodingFails_.load()) return std::nullopt;
    std::optional<ZMData> payload;
    guarded("encode", [&] { payload = content.encode(); });
    return payload;
}

// ---- Modules -----------------------------------------------------------------

void ZMEmulatedCoreClient::loadExtensionModule(const VemoIMLibExtensionModuleLoader& loader) {
    if (!loader) return;
    VemoIMLibExtensionModule* module = nullptr;
    if (!guarded("the module loader", [&] { module = &loader(); })) return;
    std::lock_guard<std::mutex> lock(mutex_);
    // A module is loaded once, however often its loader is called.
    if (std::find(modules_.begin(), modules_.end(), module) == modules_.end()) modules_.push_back(module);
}

std::vector<VemoIMLibExtensionModule*> ZMEmulatedCoreClient::modules() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return modules_;
}

std::vector<ZMMessageClass> ZMEmulatedCoreClient::registeredMessageTypes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return registered_;
}

void ZMEmulatedCoreClient::setConnectionStatus(int64_t status) {
    connectionStatus_.store(status);
    ZMEmulatedDispatcher::shared().deliver([modules = modules(), status] {
        for (auto* module : modules) {
            guarded("notifyConnectionStatusChanged", [&] { module->notifyConnectionStatusChanged(status); });
        }
    });
}

void ZMEmulatedCoreClient::setPayloadEncodingFails(bool fails) { payloadEncodingFails_.store(fails); }

void ZMEmulatedCoreClient::logout() {
    ZMEmulatedDispatcher::shared().deliver([modules = modules()] {
        for (auto* module : modules) {
            guarded("notifyLogoutEvent", [&] { module->notifyLogoutEvent(); });
        }
    });
}

void ZMEmulatedCoreClient::reset() {
    connectionStatus_.store(0);
    payloadEncodingFails_.store(false);
    std::lock_guard<std::mutex> lock(mutex_);
    deliveredMessages_ = 0;
}

// ---- Received messages -------------------------------------------------------

std::optional<ZMMessageClass> ZMEmulatedCoreClient::messageClassFor(const std::string& objectName) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = registered_.rbegin(); it != registered_.rend(); ++it) {
        if (it->getObjectName() == objectName) return *it;
    }
    return std::nullopt;
}

std::shared_ptr<ZMMessage> ZMEmulatedCoreClient::makeMessage(const std::string& objectName,
                                                             const std::string& jsonPayload,
                                                             const std::string& targetId, uint64_t serial) const {
    auto message = std::make_shared<ZMMessage>();
    message->objectName = objectName;
    message->targetId = targetId;
    message->messageUId = "EMU-" + std::to_string(serial);
    message->sentTime = nowMilliseconds();
    if (auto messageClass = messageClassFor(objectName)) {
        std::shared_ptr<ZMMessageContent> content;
        const ZMData payload(jsonPayload.begin(), jsonPayload.end());
        if (guarded("decodeWithData", [&] {
                content = messageClass->create();
                if (content) content->decodeWithData(payload);
            })) {
            message->content = std::move(content);
        }
    }
    return message;
}

std::shared_future<bool> ZMEmulatedCoreClient::deliverMessage(const std::string& objectName,
                                                              const std::string& jsonPayload,
                                                              const std::string& targetId, bool isOffline) {
    auto held = std::make_shared<std::promise<bool>>();
    std::shared_future<bool> result = held->get_future().share();
    uint64_t serial = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        serial = ++deliveredMessages_;
    }
    // Decoding runs on the callback thread too: the message classes are the
    // module's code, and the real core decodes on its own threads.
    ZMEmulatedDispatcher::shared().deliver([this, held, objectName, jsonPayload, targetId, isOffline, serial] {
        const auto message = makeMessage(objectName, jsonPayload, targetId, serial);
        bool wasHeld = false;
        for (auto* module : modules()) {
            guarded("didHoldReceivedMessage",
                    [&] { wasHeld = module->didHoldReceivedMessage(message, isOffline); });
            if (wasHeld) break;
        }
        held->set_value(wasHeld);
    });
    return result;
}
