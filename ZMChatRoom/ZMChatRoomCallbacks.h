#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <VemoIMLibCore/ZMMessage.h>
#include <VemoIMLibCore/ZMValue.h>
#include <ZMChatRoom/Models/ZMChatRoomInfo.h>
#include <ZMChatRoom/ZMJoinChatRoomResponse.h>

// The callbacks of the client's public operations. An empty function is an
// absent callback and is skipped silently.

using ZMSuccessBlock = std::function<void()>;
// Every error callback takes the error code (see ZMChatRoomErrorCode.h).
using ZMErrorBlock = std::function<void(int32_t errorCode)>;
// Success of the join-existing form that hands over the join record.
using ZMJoinSuccessBlock = std::function<void(const std::shared_ptr<ZMJoinChatRoomResponse>& response)>;
// KV reads: key -> value.
using ZMEntriesSuccessBlock = std::function<void(const ZMValue& entries)>;
// Batch writes and removes: the code and the entries that failed (empty when
// the module itself refused the call).
using ZMEntriesErrorBlock = std::function<void(int32_t errorCode, const ZMValue& failedEntries)>;
using ZMChatRoomInfoSuccessBlock = std::function<void(const std::shared_ptr<ZMChatRoomInfo>& info)>;
using ZMHistorySuccessBlock =
    std::function<void(const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t syncTime)>;
// A task of the operation queue.
using ZMOperationBlock = std::function<void()>;
