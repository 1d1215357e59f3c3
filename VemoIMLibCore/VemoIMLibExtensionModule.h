#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMMessage.h>
#include <VemoIMLibCore/ZMValue.h>

// The interface through which the core library drives an extension module.
// The core obtains a module once through the module class's loader (a class
// operation such as loadVemoExtensionModule), keeps it for the life of the
// process and calls these operations on its own threads.
class VemoIMLibExtensionModule {
public:
    virtual void destroyModule() = 0;
    // The message classes the module declares as signal messages.
    virtual std::vector<ZMMessageClass> getSignalMessageClassList() = 0;
    // Offers a received message; true when the module held (consumed) it.
    virtual bool didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message, bool isOffline) = 0;
    virtual void setAppKey(const std::string& appKey) = 0;
    virtual void setConfiguration(const ZMValue& configuration) = 0;
    virtual void setUserId(const std::string& userId) = 0;
    virtual void setCurrentToken(const std::string& token) = 0;
    virtual void notifyConnectionStatusChanged(int64_t status) = 0;
    virtual void notifyLogoutEvent() = 0;

    // Optional operations. nullopt means "not implemented", which the core
    // treats as "not holding anything".
    virtual void setDeviceToken(const ZMValue& /*token*/) {}
    virtual std::optional<bool> isAudioHolding() { return std::nullopt; }
    virtual std::optional<bool> isCameraHolding() { return std::nullopt; }

protected:
    virtual ~VemoIMLibExtensionModule() = default;
};

// A module class's loader: returns the module (the same one on every call).
using VemoIMLibExtensionModuleLoader = std::function<VemoIMLibExtensionModule&()>;
