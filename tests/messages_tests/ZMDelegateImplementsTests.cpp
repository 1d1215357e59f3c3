#include <gtest/gtest.h>

#include <memory>

#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>
#include <ZMChatRoom/ZMChatRoomKVStatusFilterDelegate.h>
#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>
#include <ZMChatRoom/ZMDelegateImplements.h>

// Whether an observer overrides a callback decides lines, filtering and model
// building; the answer must follow the observer's dynamic class, however the
// application shapes its classes.

namespace {

using KV = ZMChatRoomKVStatusChangeDelegate;
using Filter = ZMChatRoomKVStatusFilterDelegate;
using Member = ZMChatRoomMemberDelegate;
using ListCallback = void (Member::*)(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>&,
                                      const std::string&);
using ModelCallback = void (Member::*)(const std::shared_ptr<ZMChatRoomMemberActionModel>&);

// "sync update remove" as 0/1 per callback.
std::string kvMask(const KV& observer) {
    return std::string() + (ZMDelegateImplements(observer, &KV::chatRoomKVDidSync) ? "1" : "0") +
           (ZMDelegateImplements(observer, &KV::chatRoomKVDidUpdate) ? "1" : "0") +
           (ZMDelegateImplements(observer, &KV::chatRoomKVDidRemove) ? "1" : "0");
}

struct UpdateOnly : KV {
    void chatRoomKVDidUpdate(const std::string&, const ZMValue&) override {}
};
// Inherits the override without repeating it.
struct InheritsUpdate : UpdateOnly {};
// Overrides and calls the default: still an implementation.
struct CallsTheDefault final : KV {
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override {
        KV::chatRoomKVDidRemove(room, entry);
    }
};
// The KV interface as a secondary base, behind another interface.
struct StatusAndKV : ZMChatRoomStatusDelegate, KV {
    void onChatRoomJoined(const std::string&, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {}
    void chatRoomKVDidSync(const std::string&) override {}
};
// The interface as a virtual base.
struct VirtualKV : virtual KV {
    void chatRoomKVDidRemove(const std::string&, const ZMValue&) override {}
};
struct DiamondKV : VirtualKV, virtual KV {};

struct ModelOnly : Member {
    using Member::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>&) override {}
};
struct GetAllFilterOnly : Filter {
    ZMValue getAllChatRoomEntriesFilter(const std::string&, const ZMValue& entry) override { return entry; }
};
struct BanOnly : ZMChatRoomNotifyEventDelegate {
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>&) override {}
};

}  // namespace

TEST(ZMDelegateImplements, FollowsTheObserversDynamicClass) {
    struct Row {
        const char* name;
        std::shared_ptr<KV> observer;  // seen only through the interface
        const char* mask;
    };
    const std::vector<Row> rows = {
        {"the interface itself", std::make_shared<KV>(), "000"},
        {"one override", std::make_shared<UpdateOnly>(), "010"},
        {"an inherited override", std::make_shared<InheritsUpdate>(), "010"},
        {"an override calling the default", std::make_shared<CallsTheDefault>(), "001"},
        {"a secondary base", std::make_shared<StatusAndKV>(), "100"},
        {"a virtual base", std::make_shared<DiamondKV>(), "001"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(kvMask(*row.observer), row.mask);
    }
}

TEST(ZMDelegateImplements, TellsEveryInterfacesCallbacksApart) {
    StatusAndKV statusAndKV;
    const ZMChatRoomStatusDelegate& status = statusAndKV;
    EXPECT_TRUE(ZMDelegateImplements(status, &ZMChatRoomStatusDelegate::onChatRoomJoined));
    EXPECT_FALSE(ZMDelegateImplements(status, &ZMChatRoomStatusDelegate::onChatRoomJoining));
    EXPECT_FALSE(ZMDelegateImplements(status, &ZMChatRoomStatusDelegate::onChatRoomDestroyed));

    ModelOnly member;
    EXPECT_FALSE(ZMDelegateImplements<Member>(member, static_cast<ListCallback>(&Member::memberDidChange)));
    EXPECT_TRUE(ZMDelegateImplements<Member>(member, static_cast<ModelCallback>(&Member::memberDidChange)));

    GetAllFilterOnly filter;
    EXPECT_TRUE(ZMDelegateImplements<Filter>(filter, &Filter::getAllChatRoomEntriesFilter));
    EXPECT_FALSE(ZMDelegateImplements<Filter>(filter, &Filter::chatRoomKVUpdateFilter));
    EXPECT_FALSE(ZMDelegateImplements<Filter>(filter, &Filter::chatRoomKVRemoveFilter));
    EXPECT_FALSE(ZMDelegateImplements<Filter>(filter, &Filter::chatRoomKVStatusDidSync));

    BanOnly notify;
    EXPECT_TRUE(ZMDelegateImplements<ZMChatRoomNotifyEventDelegate>(notify,
                                                                     &ZMChatRoomNotifyEventDelegate::chatRoomNotifyBan));
    EXPECT_FALSE(ZMDelegateImplements<ZMChatRoomNotifyEventDelegate>(
        notify, &ZMChatRoomNotifyEventDelegate::chatRoomNotifyBlock));
}
