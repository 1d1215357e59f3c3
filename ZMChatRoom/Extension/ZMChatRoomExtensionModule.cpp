#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>

#include <VemoIMLibCore/ZMCoreClient.h>
#include <VemoIMLibCore/ZMFwLog.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberActionModel.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoom/ZMChatRoomListenerManager.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>
#include <ZMChatRoom/ZMDelegateImplements.h>

namespace {

// Connection statuses of the core that this module gives a meaning to.
constexpr int64_t kConnectionStatusConnected = 0;
constexpr int64_t kConnectionStatusLostA = 1;
constexpr int64_t kConnectionStatusLostB = 13;
constexpr int64_t kConnectionStatusLostC = -1;

}  // namespace

ZMChatRoomExtensionModule& ZMChatRoomExtensionModule::loadVemoExtensionModule() {
    // Logged on every call, also when the module exists already.
    ZMFwLog::getInstance().write(ZMLogLevelOperation, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                                 "ZMChatRoomExtensionModule loadVemoExtensionModule");

    // A function-local static is initialised exactly once, also when several
    // threads load the module at the same time; the others wait for it. The
    // module is leaked on purpose: the core keeps it for the life of the
    // process and nothing must depend on exit-time destruction order.
    static ZMChatRoomExtensionModule* const shared = [] {
        auto* module = new ZMChatRoomExtensionModule();
        module->chatRoomMessageTypeList_ = {
            ZMMessageClass::of<ZMChatroomKVNotificationMessage>(),
            ZMMessageClass::of<ZMChatRoomMemberActionMessage>(),
            ZMMessageClass::of<ZMChatRoomSyncMessage>(),
            ZMMessageClass::of<ZMChatRoomMemberBlockMessage>(),
            ZMMessageClass::of<ZMChatRoomMemberBanMessage>(),
        };
        for (const auto& messageClass : module->chatRoomMessageTypeList_) {
            ZMCoreClient::sharedCoreClient().registerMessageType(messageClass);
        }
        // Creates the client on a normal start-up and hooks it to the core.
        ZMChatRoomClient::sharedChatRoomClient().setChatroomListener();
        return module;
    }();
    return *shared;
}

void ZMChatRoomExtensionModule::destroyModule() {
    // The module is never unloaded: the client, the registered types and the
    // observers all stay.
    ZMFwLog::getInstance().write(ZMLogLevelOperation, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                                 "ZMChatRoomExtensionModule destroyModule");
}

std::vector<ZMMessageClass> ZMChatRoomExtensionModule::getSignalMessageClassList() {
    return {ZMMessageClass::of<ZMChatroomKVNotificationMessage>()};
}

bool ZMChatRoomExtensionModule::didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message,
                                                       bool /*isOffline*/) {
    // Offline and online messages are routed alike.
    if (!message) return false;
    // Held for the delivery: the message is the core's, which may change it meanwhile.
    const std::shared_ptr<ZMMessageContent> held = message->content;
    if (const auto* memberChange = dynamic_cast<const ZMChatRoomMemberActionMessage*>(held.get())) {
        p_didReceiveMemberChangeMessage(message, *memberChange);
        return true;
    }
    return p_checkHandleNotifyEventMessage(message);
}

void ZMChatRoomExtensionModule::p_didReceiveMemberChangeMessage(const std::shared_ptr<ZMMessage>& message,
                                                                const ZMChatRoomMemberActionMessage& memberChange) {
    const auto* content = &memberChange;
    auto delegate = ZMChatRoomClient::sharedChatRoomClient().memberDelegate();
    if (!delegate) return;

    // Both forms go to the observer, list first; nothing is filtered (not by
    // room, user or action). The model is built only for an observer that
    // receives it.
    using ListCallback = void (ZMChatRoomMemberDelegate::*)(
        const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>&, const std::string&);
    using ModelCallback = void (ZMChatRoomMemberDelegate::*)(const std::shared_ptr<ZMChatRoomMemberActionModel>&);
    if (ZMDelegateImplements(*delegate, static_cast<ListCallback>(&ZMChatRoomMemberDelegate::memberDidChange))) {
        delegate->memberDidChange(content->userList, message->targetId);
    }
    if (ZMDelegateImplements(*delegate, static_cast<ModelCallback>(&ZMChatRoomMemberDelegate::memberDidChange))) {
        delegate->memberDidChange(std::make_shared<ZMChatRoomMemberActionModel>(message->targetId, content->userList,
                                                                                 content->memberCount));
    }
}

bool ZMChatRoomExtensionModule::p_checkHandleNotifyEventMessage(const std::shared_ptr<ZMMessage>& message) {
    // The snapshot is taken before the class tests, for every message that
    // gets here; observers are called outside the registry's lock, so one may
    // add or remove observers from its callback without changing this walk.
    const ZMLiveObservers<ZMChatRoomNotifyEventDelegate> delegates(
        ZMChatRoomListenerManager::sharedManager().chatRoomNotifyEventDelegateSnapshot());
    const auto& content = message->content;

    // Each observer that implements the callback gets an event of its own, so
    // one observer changing its event cannot affect what another sees.
    if (auto sync = std::dynamic_pointer_cast<ZMChatRoomSyncMessage>(content)) {
        for (const auto& delegate : delegates) {
            if (ZMDelegateImplements(*delegate, &ZMChatRoomNotifyEventDelegate::chatRoomNotifyMultiLoginSync)) {
                delegate->chatRoomNotifyMultiLoginSync(ZMChatRoomUtil::modelWithSyncMessage(sync));
            }
        }
        return true;
    }
    if (auto block = std::dynamic_pointer_cast<ZMChatRoomMemberBlockMessage>(content)) {
        for (const auto& delegate : delegates) {
            if (ZMDelegateImplements(*delegate, &ZMChatRoomNotifyEventDelegate::chatRoomNotifyBlock)) {
                delegate->chatRoomNotifyBlock(ZMChatRoomUtil::modelWithBlockMessage(block));
            }
        }
        return true;
    }
    if (auto ban = std::dynamic_pointer_cast<ZMChatRoomMemberBanMessage>(content)) {
        for (const auto& delegate : delegates) {
            if (ZMDelegateImplements(*delegate, &ZMChatRoomNotifyEventDelegate::chatRoomNotifyBan)) {
                delegate->chatRoomNotifyBan(ZMChatRoomUtil::modelWithBanMessage(ban));
            }
        }
        return true;
    }
    return false;
}

void ZMChatRoomExtensionModule::setAppKey(const std::string& appKey) {
    // Logged only; the key is not kept.
    ZMFwLog::getInstance().write(ZMLogLevelOperation, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                                 "ZMChatRoomExtensionModule setAppKey = %@", appKey);
}

// The module needs none of these; they are accepted and dropped.
void ZMChatRoomExtensionModule::setConfiguration(const ZMValue& /*configuration*/) {}
void ZMChatRoomExtensionModule::setUserId(const std::string& /*userId*/) {}
void ZMChatRoomExtensionModule::setCurrentToken(const std::string& /*token*/) {}
void ZMChatRoomExtensionModule::setDeviceToken(const ZMValue& /*token*/) {}

void ZMChatRoomExtensionModule::notifyConnectionStatusChanged(int64_t status) {
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    switch (status) {
        case kConnectionStatusConnected:
            // Back online: rejoin the failed rooms now and keep retrying.
            client.rejoinCacheChatRoom();
            client.startChatRoomRejoinTimer();
            break;
        case kConnectionStatusLostA:
        case kConnectionStatusLostB:
        case kConnectionStatusLostC:
            // Connection lost: every cached room is failed until reconnected.
            client.resetCacheChatRoomForFailed();
            client.stopChatRoomRejoinTimer();
            break;
        default:
            client.stopChatRoomRejoinTimer();
            break;
    }
}

void ZMChatRoomExtensionModule::notifyLogoutEvent() {
    ZMChatRoomClient::sharedChatRoomClient().clearChatRoom();
}
