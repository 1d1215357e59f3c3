#include <CoreEmulator/ZMCoreEmulator.h>

#include <CoreEmulator/ZMEmulatedChatRoomService.h>
#include <CoreEmulator/ZMEmulatedCoreClient.h>
#include <CoreEmulator/ZMEmulatedDispatcher.h>
#include <CoreEmulator/ZMEmulatedNaviDataManager.h>

// The control API steers the emulated parts of the core; each part keeps its
// own state and lock, and none calls module code while holding it.
struct ZMCoreEmulator::State {
    ZMEmulatedChatRoomService& service = ZMEmulatedChatRoomService::shared();
    ZMEmulatedKVServer& kv = service.kvServer();
    ZMEmulatedCoreClient& client = ZMEmulatedCoreClient::shared();
    ZMEmulatedNaviDataManager& navi = ZMEmulatedNaviDataManager::shared();
    ZMEmulatedDispatcher& dispatcher = ZMEmulatedDispatcher::shared();
    ZMEmulatedLogger logger;
};

ZMCoreEmulator::ZMCoreEmulator() : state_(new State()) {}

ZMCoreEmulator& ZMCoreEmulator::shared() {
    // Never destroyed, like the core it stands for.
    static auto* emulator = new ZMCoreEmulator();
    return *emulator;
}

// ---- Between tests ---------------------------------------------------------------

bool ZMCoreEmulator::reset(double timeoutSeconds) {
    // Deliveries already on their way would otherwise land in the fresh state.
    const bool idle = state_->dispatcher.waitUntilIdle(timeoutSeconds);
    state_->service.resetRequests();
    state_->service.setRequestCapacity(ZMEmulatedChatRoomService::kDefaultRequestCapacity);
    state_->kv.reset();
    state_->navi.reset();
    state_->client.reset();
    state_->dispatcher.setThreadCount(1);
    ZMEmulatedLogger& logger = state_->logger;
    logger.setLineObserver({});
    logger.setConsoleLevel(-1);
    logger.setConsoleStream(stderr);
    logger.setRecording(true);
    logger.setLineCapacity(ZMEmulatedLogger::kDefaultLineCapacity);
    logger.clear();
    return idle;
}

// ---- Extension modules ---------------------------------------------------------

void ZMCoreEmulator::loadExtensionModule(const VemoIMLibExtensionModuleLoader& loader) {
    state_->client.loadExtensionModule(loader);
}

std::vector<ZMMessageClass> ZMCoreEmulator::registeredMessageTypes() const {
    return state_->client.registeredMessageTypes();
}

// ---- Chat-room service requests --------------------------------------------------

std::vector<ZMCoreRequest> ZMCoreEmulator::requests() const { return state_->service.requests(nullptr); }

std::vector<ZMCoreRequest> ZMCoreEmulator::requests(const std::string& operation) const {
    return state_->service.requests(&operation);
}

void ZMCoreEmulator::clearRequests() { state_->service.clearRequests(); }

bool ZMCoreEmulator::waitForRequests(const std::string& operation, size_t count, double timeoutSeconds) const {
    return state_->service.waitForRequests(operation, count, timeoutSeconds);
}

void ZMCoreEmulator::setRequestCapacity(size_t capacity) { state_->service.setRequestCapacity(capacity); }

size_t ZMCoreEmulator::requestCapacity() const { return state_->service.requestCapacity(); }

void ZMCoreEmulator::setRule(const std::string& operation, ZMCoreAnswer answer) {
    state_->service.setRule(operation, [answer = std::move(answer)](const ZMCoreRequest&) {
        return std::optional<ZMCoreAnswer>(answer);
    });
}

void ZMCoreEmulator::setRule(const std::string& operation, Rule rule) {
    state_->service.setRule(operation, std::move(rule));
}

void ZMCoreEmulator::holdRequests(const std::string& operation) {
    state_->service.setRule(operation, [](const ZMCoreRequest&) { return std::optional<ZMCoreAnswer>(); });
}

void ZMCoreEmulator::clearRules() { state_->service.clearRules(); }

std::vector<ZMCoreRequest> ZMCoreEmulator::heldRequests() const { return state_->service.heldRequests(); }

bool ZMCoreEmulator::answer(uint64_t requestId, const ZMCoreAnswer& answer) {
    return state_->service.answer(requestId, answer);
}

// ---- Pushes --------------------------------------------------------------------

void ZMCoreEmulator::raiseStatusChange(const std::string& chatroomId) {
    state_->service.raiseStatusChange(chatroomId);
}

void ZMCoreEmulator::raiseKVChange(const std::string& chatroomId, const ZMValue& updateEntries,
                                   const ZMValue& removeEntries) {
    state_->service.raiseKVChange(chatroomId, updateEntries, removeEntries);
}

void ZMCoreEmulator::raiseRoomDestroyed(const std::string& chatroomId, int32_t type) {
    state_->service.raiseRoomDestroyed(chatroomId, type);
}

bool ZMCoreEmulator::isPushListening() const { return state_->service.isPushListening(); }

// ---- Connection and session --------------------------------------------------------

void ZMCoreEmulator::setConnectionStatus(int64_t status) { state_->client.setConnectionStatus(status); }

void ZMCoreEmulator::logout() {
    state_->kv.logout();
    state_->client.logout();
}

// ---- Key-value server model ----------------------------------------------------------

void ZMCoreEmulator::setKVServerModelEnabled(bool enabled) { state_->kv.setEnabled(enabled); }

void ZMCoreEmulator::setCurrentUserId(const std::string& userId) {
    state_->kv.setCurrentUserId(userId);
}

std::string ZMCoreEmulator::currentUserId() const { return state_->kv.currentUserId(); }

void ZMCoreEmulator::setKVFirstSync(KVFirstSync mode, double delaySeconds) {
    state_->kv.setFirstSync(mode, delaySeconds);
}

void ZMCoreEmulator::setKVRoomCapacity(size_t capacity) { state_->kv.setRoomCapacity(capacity); }

void ZMCoreEmulator::seedChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                                         const std::string& ownerUserId) {
    state_->kv.seedEntries(chatroomId, entries, ownerUserId);
}

void ZMCoreEmulator::changeChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                                           const std::string& ownerUserId) {
    state_->kv.changeEntries(chatroomId, entries, ownerUserId);
}

void ZMCoreEmulator::deleteChatRoomEntries(const std::string& chatroomId, const ZMValue& keys) {
    state_->kv.deleteEntries(chatroomId, keys);
}

ZMValue ZMCoreEmulator::chatRoomEntries(const std::string& chatroomId) const {
    return state_->kv.entries(chatroomId);
}

std::optional<std::string> ZMCoreEmulator::chatRoomEntryOwner(const std::string& chatroomId,
                                                              const std::string& key) const {
    return state_->kv.entryOwner(chatroomId, key);
}

std::vector<ZMKVNotification> ZMCoreEmulator::kvNotifications() const {
    return state_->kv.notifications();
}

void ZMCoreEmulator::clearKVNotifications() { state_->kv.clearNotifications(); }

// ---- Received messages -----------------------------------------------------------

std::shared_future<bool> ZMCoreEmulator::deliverMessage(const std::string& objectName,
                                                        const std::string& jsonPayload,
                                                        const std::string& targetId, bool isOffline) {
    return state_->client.deliverMessage(objectName, jsonPayload, targetId, isOffline);
}

// ---- Navigation data -------------------------------------------------------------

void ZMCoreEmulator::setNaviDataAvailable(bool available) { state_->navi.setAvailable(available); }

void ZMCoreEmulator::setChatroomKVStorageEnabled(bool enabled) {
    state_->navi.setChatroomKVStorageEnabled(enabled);
}

void ZMCoreEmulator::setChatroomMessageStoreEnabled(bool enabled) {
    state_->navi.setChatroomMessageStoreEnabled(enabled);
}

void ZMCoreEmulator::setMutliChatroomEnabled(bool enabled) { state_->navi.setMutliChatroomEnabled(enabled); }

void ZMCoreEmulator::setNaviDetectionResult(const std::string& navi, const std::string& ip, const std::string& net) {
    state_->navi.setDetectionResult(navi, ip, net);
}

void ZMCoreEmulator::setNaviDetectionFails() { state_->navi.setDetectionFails(); }

size_t ZMCoreEmulator::naviDetectionCount() const { return state_->navi.detectionCount(); }

// ---- Payload encoding ----------------------------------------------------------

void ZMCoreEmulator::setPayloadEncodingFails(bool fails) { state_->client.setPayloadEncodingFails(fails); }

// ---- Threads -----------------------------------------------------------------

void ZMCoreEmulator::setCallbackThreadCount(size_t count) { state_->dispatcher.setThreadCount(count); }

bool ZMCoreEmulator::waitUntilIdle(double timeoutSeconds) const {
    return state_->dispatcher.waitUntilIdle(timeoutSeconds);
}

// ---- Logger and key rule ---------------------------------------------------------

ZMEmulatedLogger& ZMCoreEmulator::logger() { return state_->logger; }

bool ZMCoreEmulator::isLegalKVKeyCharacter(char32_t character) {
    return (character >= U'a' && character <= U'z') || (character >= U'A' && character <= U'Z') ||
           (character >= U'0' && character <= U'9') || character == U'_' || character == U'-' ||
           character == U'+' || character == U'=' || character == U'.';
}
