#include <CoreEmulator/ZMEmulatedNaviDataManager.h>

#include <CoreEmulator/ZMEmulatedDispatcher.h>

ZMNaviDataManager& ZMNaviDataManager::sharedInstance() { return ZMEmulatedNaviDataManager::shared(); }

ZMEmulatedNaviDataManager& ZMEmulatedNaviDataManager::shared() {
    static auto* manager = new ZMEmulatedNaviDataManager();
    return *manager;
}

std::shared_ptr<const ZMNaviData> ZMEmulatedNaviDataManager::naviData() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!available_) return nullptr;
    return std::make_shared<const ZMNaviData>(kvStorageEnabled_, messageStoreEnabled_, multiChatroomEnabled_);
}

void ZMEmulatedNaviDataManager::setAvailable(bool available) {
    std::lock_guard<std::mutex> lock(mutex_);
    available_ = available;
}

void ZMEmulatedNaviDataManager::setChatroomKVStorageEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(mutex_);
    kvStorageEnabled_ = enabled;
}

void ZMEmulatedNaviDataManager::setChatroomMessageStoreEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(mutex_);
    messageStoreEnabled_ = enabled;
}

void ZMEmulatedNaviDataManager::setMutliChatroomEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(mutex_);
    multiChatroomEnabled_ = enabled;
}

void ZMEmulatedNaviDataManager::setDetectionResult(const std::string& navi, const std::string& ip,
                                                   const std::string& net) {
    std::lock_guard<std::mutex> lock(mutex_);
    detectionFails_ = false;
    navi_ = navi;
    ip_ = ip;
    net_ = net;
}

void ZMEmulatedNaviDataManager::setDetectionFails() {
    std::lock_guard<std::mutex> lock(mutex_);
    detectionFails_ = true;
}

size_t ZMEmulatedNaviDataManager::detectionCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return detectionCount_;
}

void ZMEmulatedNaviDataManager::reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    available_ = true;
    kvStorageEnabled_ = true;
    messageStoreEnabled_ = true;
    multiChatroomEnabled_ = true;
    detectionFails_ = false;
    navi_ = kInitialNavi;
    ip_ = kInitialIp;
    net_ = kInitialNet;
    detectionCount_ = 0;
}

void ZMEmulatedNaviDataManager::detectNavi(bool /*force*/, ZMNetDetection::SuccessBlock success,
                                           ZMNetDetection::ErrorBlock error) {
    bool fails = false;
    std::string navi, ip, net;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++detectionCount_;
        fails = detectionFails_;
        navi = navi_;
        ip = ip_;
        net = net_;
    }
    if (fails) {
        if (!error) return;
        ZMEmulatedDispatcher::shared().deliver([error = std::move(error)] { error(); });
        return;
    }
    if (!success) return;
    ZMEmulatedDispatcher::shared().deliver(
        [success = std::move(success), navi, ip, net] { success(navi, ip, net); });
}
