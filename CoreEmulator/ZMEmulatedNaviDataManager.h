#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include <VemoIMLibCore/ZMNaviDataManager.h>
#include <VemoIMLibCore/ZMNetDetection.h>

// The emulated navigation data: whether the core has any yet (initially it
// has), three switches (all on initially) and the configured outcome of
// navigation re-detection.
class ZMEmulatedNaviDataManager : public ZMNaviDataManager {
public:
    static ZMEmulatedNaviDataManager& shared();

    // A snapshot of the switches at the moment of the call; null while no
    // navigation data is available.
    std::shared_ptr<const ZMNaviData> naviData() override;

    void setAvailable(bool available);
    void setChatroomKVStorageEnabled(bool enabled);
    void setChatroomMessageStoreEnabled(bool enabled);
    void setMutliChatroomEnabled(bool enabled);

    void setDetectionResult(const std::string& navi, const std::string& ip, const std::string& net);
    void setDetectionFails();
    size_t detectionCount() const;
    // Back to the initial state: data available, every switch on, detection
    // succeeding with the initial strings, no detection counted.
    void reset();
    // Counts the detection and answers it later on a callback thread with the
    // outcome configured at the moment of the call.
    void detectNavi(bool force, ZMNetDetection::SuccessBlock success, ZMNetDetection::ErrorBlock error);

private:
    ZMEmulatedNaviDataManager() = default;
    ~ZMEmulatedNaviDataManager() override = default;

    mutable std::mutex mutex_;
    bool available_ = true;
    bool kvStorageEnabled_ = true;
    bool messageStoreEnabled_ = true;
    bool multiChatroomEnabled_ = true;
    bool detectionFails_ = false;
    // The detection outcome until told otherwise.
    static constexpr const char* kInitialNavi = "navi.emulator";
    static constexpr const char* kInitialIp = "127.0.0.1";
    static constexpr const char* kInitialNet = "wifi";

    std::string navi_ = kInitialNavi;
    std::string ip_ = kInitialIp;
    std::string net_ = kInitialNet;
    size_t detectionCount_ = 0;
};
