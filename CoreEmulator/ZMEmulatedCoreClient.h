#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <VemoIMLibCore/VemoIMLibExtensionModule.h>
#include <VemoIMLibCore/ZMCoreClient.h>

// The emulated core client: the message type registry, the connection status
// and the loaded extension modules, to which it delivers connection changes,
// logout and received messages on the callback threads.
class ZMEmulatedCoreClient : public ZMCoreClient {
public:
    static ZMEmulatedCoreClient& shared();

    // ---- ZMCoreClient -----------------------------------------------------
    void registerMessageType(const ZMMessageClass& messageClass) override;
    int64_t getConnectionStatus() override;
    std::optional<ZMData> payloadOfMessageContent(const ZMMessageContent& content) override;

    // ---- Control ----------------------------------------------------------
    void loadExtensionModule(const VemoIMLibExtensionModuleLoader& loader);
    std::vector<ZMMessageClass> registeredMessageTypes() const;
    void setConnectionStatus(int64_t status);
    // While set, payloadOfMessageContent answers nothing without encoding.
    void setPayloadEncodingFails(bool fails);
    void logout();
    std::shared_future<bool> deliverMessage(const std::string& objectName, const std::string& jsonPayload,
                                            const std::string& targetId, bool isOffline);
    // Back to the initial session: connection status 0, set without offering
    // it to the modules; payload encoding working; message ids counting from
    // "EMU-1" again. Loaded modules and registered message types stay.
    void reset();

private:
    ZMEmulatedCoreClient() = default;
    ~ZMEmulatedCoreClient() override = default;

    std::vector<VemoIMLibExtensionModule*> modules() const;
    // The class registered for an object name, the latest registration winning.
    std::optional<ZMMessageClass> messageClassFor(const std::string& objectName) const;
    // Decodes a received payload; null content for an unknown type or a
    // decoder that raised.
    std::shared_ptr<ZMMessage> makeMessage(const std::string& objectName, const std::string& jsonPayload,
                                           const std::string& targetId, uint64_t serial) const;

    mutable std::mutex mutex_;
    std::vector<ZMMessageClass> registered_;
    std::vector<VemoIMLibExtensionModule*> modules_;  // in load order; modules live for the process
    std::atomic<int64_t> connectionStatus_{0};
    std::atomic<bool> payloadEncodingFails_{false};
    uint64_t deliveredMessages_ = 0;
};
