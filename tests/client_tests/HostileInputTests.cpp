// Arguments nested thousands deep, passed to every public operation that takes
// a ZMValue, on a thread with the stack of a mobile platform's secondary
// threads: each is refused as usual, and its lines render the value cut short
// instead of walking (or copying) it level by level.
#include "ClientTestSupport.h"

#include <pthread.h>

#include "support/ZMNestedValues.h"

namespace {

constexpr size_t kHostileDepth = 10000;
constexpr size_t kSmallStackBytes = 512 * 1024;

// Runs the work on a new thread with a 512 KB stack and waits for it.
void runOnSmallStack(const std::function<void()>& work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStackBytes), 0);
    pthread_t thread;
    auto start = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    const int created = pthread_create(&thread, &attributes, start, const_cast<std::function<void()>*>(&work));
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(created, 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
}

// What a refused call reported, written by the callbacks on the small thread.
struct Refusal {
    int successes = 0;
    std::vector<int32_t> codes;
    std::vector<ZMValue> failedEntries;

    ZMSuccessBlock success() { return [this] { ++successes; }; }
    ZMErrorBlock error() { return [this](int32_t code) { codes.push_back(code); }; }
    ZMEntriesErrorBlock entriesError() {
        return [this](int32_t code, const ZMValue& entries) {
            codes.push_back(code);
            failedEntries.push_back(entries);
        };
    }
    template <class... Args>
    std::function<void(const Args&...)> unexpected() {
        return [this](const Args&...) { ++successes; };
    }
};

// The pieces one after the other (appended: g++ 12 at -O3 misreads
// "literal" + std::string as an overlapping copy).
template <class... Pieces>
std::string joined(const Pieces&... pieces) {
    std::string text;
    (text += ... += pieces);
    return text;
}

ZMLogLine tagged(const char* tag, int32_t level, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeOperation, tag, text};
}

ZMLogLine diagnostic(int32_t level, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, text};
}

const ZMLogLine kNotAString = diagnostic(6, "Parameter error，targetId is not NSString");

ZMLogLine parameterError(const std::string& operation, const char* name, const std::string& rendered) {
    return diagnostic(2, joined("Parameter Error, ", operation, ", ", name, ":", rendered));
}

}  // namespace

TEST_F(ClientTest, ArgumentsNestedTenThousandDeepAreRefusedOnASmallStackWithTheirLinesCutShort) {
    using Lines = std::vector<ZMLogLine>;
    struct Operation {
        const char* name;
        // Calls the operation with the hostile value in every ZMValue argument.
        std::function<void(ZMChatRoomClient&, const ZMValue&, Refusal&)> call;
        // The lines written, given the rendered hostile value.
        std::function<Lines(const std::string&)> lines;
        bool failedEntries = false;  // the error callback also receives the failed entries
    };
    const auto join = [](const char* existed) {
        return [existed](const std::string& r) {
            return Lines{
                tagged(ZM_A_JION_CHATROOM_T, 4, joined("room_id:", r, ",existed:", existed, ",count:10,joinMode:0")),
                kNotAString, tagged(ZM_A_JION_CHATROOM_R, 2, joined("code:34210,room_id:", r))};
        };
    };
    const auto setEntry = [](const char* overwrite) {
        return [overwrite](const std::string& r) {
            return Lines{tagged(ZM_A_SET_CHATROOM_KV_T, 4,
                                joined("room_id:", r, ",key:", r, ",value:", r, ",overwrite:", overwrite,
                                       ",notify:1,auto_del:0")),
                         kNotAString,
                         parameterError("setChatRoomStatus:key:value:overwrite:sendNotification:autoDelete:"
                                        "notificationExtra:success:error:",
                                        "chatroomId", r)};
        };
    };
    const auto removeEntry = [](const char* overwrite) {
        return [overwrite](const std::string& r) {
            return Lines{tagged(ZM_A_REMOVE_CHATROOM_KV_T, 4,
                                joined("room_id:", r, ",key:", r, ",overwrite:", overwrite, ",notify:1")),
                         kNotAString,
                         parameterError("removeChatRoomStatus:key:overwrite:sendNotification:notificationExtra:"
                                        "success:error:",
                                        "chatroomId", r),
                         tagged(ZM_A_REMOVE_CHATROOM_KV_R, 4, joined("room_id:", r, ",code:34210"))};
        };
    };
    const std::vector<Operation> operations = {
        {"joinChatRoom", [](auto& c, const ZMValue& v, Refusal& o) { c.joinChatRoom(v, 10, o.success(), o.error()); },
         join("0")},
        {"joinExistChatRoom", [](auto& c, const ZMValue& v, Refusal& o) {
             c.joinExistChatRoom(v, 10, o.success(), o.error());
         }, join("1")},
        {"joinExistChatRoom with the response", [](auto& c, const ZMValue& v, Refusal& o) {
             c.joinExistChatRoom(v, 10, o.unexpected<std::shared_ptr<ZMJoinChatRoomResponse>>(), o.error());
         }, join("1")},
        {"quitChatRoom", [](auto& c, const ZMValue& v, Refusal& o) { c.quitChatRoom(v, o.success(), o.error()); },
         [](const std::string& r) {
             return Lines{tagged(ZM_A_QUIT_CHATROOM_T, 4, joined("room_id:", r)), kNotAString,
                          tagged(ZM_A_QUIT_CHATROOM_R, 2, joined("code:33003,room_id:", r))};
         }},
        {"getChatRoomInfo", [](auto& c, const ZMValue& v, Refusal& o) {
             c.getChatRoomInfo(v, 10, 1, o.unexpected<std::shared_ptr<ZMChatRoomInfo>>(), o.error());
         }, [](const std::string& r) {
             return Lines{kNotAString, parameterError("getChatRoomInfo:count:order:success:error:", "targetId", r)};
         }},
        {"getRemoteChatroomHistoryMessages", [](auto& c, const ZMValue& v, Refusal& o) {
             using Page = std::vector<std::shared_ptr<ZMMessage>>;
             c.getRemoteChatroomHistoryMessages(v, 0, 10, 0, o.unexpected<Page, int64_t>(), o.error());
         }, [](const std::string& r) {
             return Lines{kNotAString,
                          parameterError("getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:",
                                         "targetId", r)};
         }},
        {"bindChatRoom", [](auto& c, const ZMValue& v, Refusal& o) { c.bindChatRoom(v, v, o.success(), o.error()); },
         [](const std::string& r) {
             return Lines{kNotAString, parameterError("bindChatRoom:withRTCRoom:success:error:", "chatRoomId", r)};
         }},
        {"setChatRoomEntry", [](auto& c, const ZMValue& v, Refusal& o) {
             c.setChatRoomEntry(v, v, v, true, false, v, o.success(), o.error());
         }, setEntry("0")},
        {"forceSetChatRoomEntry", [](auto& c, const ZMValue& v, Refusal& o) {
             c.forceSetChatRoomEntry(v, v, v, true, false, v, o.success(), o.error());
         }, setEntry("1")},
        {"removeChatRoomEntry", [](auto& c, const ZMValue& v, Refusal& o) {
             c.removeChatRoomEntry(v, v, true, v, o.success(), o.error());
         }, removeEntry("0")},
        {"forceRemoveChatRoomEntry", [](auto& c, const ZMValue& v, Refusal& o) {
             c.forceRemoveChatRoomEntry(v, v, true, v, o.success(), o.error());
         }, removeEntry("1")},
        {"getChatRoomEntry", [](auto& c, const ZMValue& v, Refusal& o) {
             c.getChatRoomEntry(v, v, o.unexpected<ZMValue>(), o.error());
         }, [](const std::string& r) {
             return Lines{tagged(ZM_A_GET_CHATROOM_KV_T, 4, joined("room_id:", r, ",key:", r)), kNotAString,
                          parameterError("getChatRoomEntry:key:success:error:", "chatroomId", r),
                          tagged(ZM_A_GET_CHATROOM_KV_R, 4, joined("room_id:", r, ",code:34210"))};
         }},
        {"setChatRoomEntries", [](auto& c, const ZMValue& v, Refusal& o) {
             c.setChatRoomEntries(v, v, false, false, o.success(), o.entriesError());
         }, [](const std::string& r) {
             return Lines{kNotAString,
                          parameterError("setChatRoomEntries:entries:isForce:autoDelete:success:error:", "chatroomId", r),
                          tagged(ZM_A_SET_CHATROOM_KVS_R, 4, joined("room_id:", r, ",code:34210"))};
         }, true},
        {"removeChatRoomEntries", [](auto& c, const ZMValue& v, Refusal& o) {
             c.removeChatRoomEntries(v, v, true, o.success(), o.entriesError());
         }, [](const std::string& r) {
             return Lines{tagged(ZM_A_REMOVE_CHATROOM_KVS_T, 4, joined("room_id:", r, ",overwrite:1")), kNotAString,
                          parameterError("removeChatRoomEntries:keys:isForce:success:error:", "chatroomId", r),
                          tagged(ZM_A_REMOVE_CHATROOM_KVS_R, 4, joined("room_id:", r, ",code:34210"))};
         }, true},
        // The keys' JSON text is written before any check: too deep for JSON, it is empty.
        {"getChatRoomEntriesByBatch", [](auto& c, const ZMValue& v, Refusal& o) {
             c.getChatRoomEntriesByBatch(v, v, o.unexpected<ZMValue>(), o.error());
         }, [](const std::string& r) {
             return Lines{tagged(ZM_A_GET_CHATROOM_BATCH_KV_T, 4, joined("room_id:", r, ",keys:")), kNotAString,
                          parameterError("getChatRoomEntriesByBatch:keys:success:error:", "chatroomId", r),
                          tagged(ZM_A_GET_CHATROOM_BATCH_KV_R, 4, joined("room_id:", r, ",code:34210"))};
         }},
        {"getAllChatRoomEntries", [](auto& c, const ZMValue& v, Refusal& o) {
             c.getAllChatRoomEntries(v, o.unexpected<ZMValue>(), o.error());
         }, [](const std::string& r) {
             return Lines{tagged(ZM_A_GET_CHATROOM_ALL_KV_T, 4, joined("room_id:", r)), kNotAString,
                          parameterError("getAllChatRoomEntries:success:error:", "chatroomId", r),
                          tagged(ZM_A_GET_CHATROOM_ALL_KV_R, 4, joined("room_id:", r, ",code:34210"))};
         }},
    };

    for (bool dictionaries : {false, true}) {
        const ZMValue hostile = nestedValue(kHostileDepth, dictionaries);
        // Log lines show the first 64 levels.
        const std::string rendered = cutShortText(64, dictionaries);
        for (const auto& operation : operations) {
            SCOPED_TRACE(std::string(operation.name) + (dictionaries ? " with dictionaries" : " with arrays"));
            core.logger().clear();
            Refusal refusal;
            runOnSmallStack([&] { operation.call(client, hostile, refusal); });
            settle();
            EXPECT_EQ(refusal.codes, std::vector<int32_t>{ZMErrorInvalidParameter});
            EXPECT_EQ(refusal.successes, 0);
            EXPECT_EQ(refusal.failedEntries,
                      operation.failedEntries ? std::vector<ZMValue>{ZMValue::object()} : std::vector<ZMValue>{});
            EXPECT_EQ(core.logger().lines(), operation.lines(rendered));
            EXPECT_TRUE(core.requests().empty());
        }
    }
}
