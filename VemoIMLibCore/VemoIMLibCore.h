#pragma once

// Everything the chat-room module uses of the core library.
#include <VemoIMLibCore/VemoIMLibExtensionModule.h>
#include <VemoIMLibCore/ZMChatRoomPSManager.h>
#include <VemoIMLibCore/ZMCoreClient.h>
#include <VemoIMLibCore/ZMCoreLogTags.h>
#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <VemoIMLibCore/ZMFwLog.h>
#include <VemoIMLibCore/ZMKernel.h>
#include <VemoIMLibCore/ZMMessage.h>
#include <VemoIMLibCore/ZMMessageContent.h>
#include <VemoIMLibCore/ZMNaviDataManager.h>
#include <VemoIMLibCore/ZMNetDetection.h>
#include <VemoIMLibCore/ZMTSMutableDictionary.h>
#include <VemoIMLibCore/ZMUtilities.h>
#include <VemoIMLibCore/ZMValue.h>
