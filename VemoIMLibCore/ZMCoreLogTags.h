#pragma once

// Log tags that belong to the core library.

// Result lines of binding a chat room to a real-time (RTC) room.
extern const char* const ZM_BINDCHATROOM;
