// The demo of the chat-room module: a short story told on the core emulator,
// one line per event.
//
//   zm_demo [--story NAME] [--log-level N] [--help]

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>

#include "ZMDemoConsole.h"
#include "ZMDemoStory.h"

namespace {

struct Story {
    const char* name;
    const char* description;
    std::vector<ZMDemoStory::Chapter> chapters;
};

const std::vector<Story>& stories() {
    static const std::vector<Story> all = {
        {"full",
         "load, observe, join two rooms, member changes,\n"
         "the key-value store (first sync, writes and\n"
         "echoes, a filter, reads, batches, refusals),\n"
         "connection lost and back (the 2-second timer\n"
         "retries a failed rejoin), ban and sync events,\n"
         "room info and history, RTC binding, a room\n"
         "destroyed on the server, quit",
         {&ZMDemoStory::loadModule, &ZMDemoStory::registerObservers, &ZMDemoStory::joinTwoRooms,
          &ZMDemoStory::membersComeAndGo, &ZMDemoStory::keyValueStore, &ZMDemoStory::connectionDrops,
          &ZMDemoStory::connectionReturns, &ZMDemoStory::banAndMultiLoginSync,
          &ZMDemoStory::readRoomInfoAndHistory, &ZMDemoStory::bindRtcRoom, &ZMDemoStory::roomDestroyedOnServer,
          &ZMDemoStory::quitRooms}},
        {"quick",
         "load, observe, join two rooms, member changes,\nthe key-value store, ban and sync events, quit\n"
         "(no reconnect wait)",
         {&ZMDemoStory::loadModule, &ZMDemoStory::registerObservers, &ZMDemoStory::joinTwoRooms,
          &ZMDemoStory::membersComeAndGo, &ZMDemoStory::keyValueStore, &ZMDemoStory::banAndMultiLoginSync,
          &ZMDemoStory::quitRooms}},
        {"reconnect", "load, observe, join two rooms, connection lost\nand back, quit",
         {&ZMDemoStory::loadModule, &ZMDemoStory::registerObservers, &ZMDemoStory::joinTwoRooms,
          &ZMDemoStory::connectionDrops, &ZMDemoStory::connectionReturns, &ZMDemoStory::quitRooms}},
    };
    return all;
}

const Story* findStory(const std::string& name) {
    for (const auto& story : stories()) {
        if (name == story.name) return &story;
    }
    return nullptr;
}

void printUsage(FILE* stream) {
    std::fprintf(stream,
                 "Usage: zm_demo [--story NAME] [--log-level N] [--help]\n"
                 "Tells a short story of the chat-room module on the built-in core emulator,\n"
                 "one line per event, each with the time since the start.\n"
                 "\n"
                 "  --story NAME     the story to tell (default: full):\n");
    for (const auto& story : stories()) {
        std::string description = story.description;
        for (size_t at = description.find('\n'); at != std::string::npos; at = description.find('\n', at + 1)) {
            description.insert(at + 1, std::string(29, ' '));
        }
        std::fprintf(stream, "                   %-9s %s\n", story.name, description.c_str());
    }
    std::fprintf(stream,
                 "  --log-level N    also show the module's log lines of level N or lower\n"
                 "                   (2 failures, 3 exceptions, 4 operations, 6 diagnostics;\n"
                 "                   default: none shown)\n"
                 "  --help           show this text\n");
}

struct Options {
    const Story* story = nullptr;
    std::optional<int> logLevel;
    bool help = false;
};

std::optional<int> parseLevel(const std::string& text) {
    if (text.empty() || text.size() > 3) return std::nullopt;
    for (char character : text) {
        if (character < '0' || character > '9') return std::nullopt;
    }
    return std::stoi(text);
}

// Options as "--name value" or "--name=value". Nothing on any mistake, after
// saying what it is.
std::optional<Options> parseOptions(int argc, char** argv) {
    Options options;
    options.story = findStory("full");
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        std::optional<std::string> value;
        if (auto equals = name.find('='); name.rfind("--", 0) == 0 && equals != std::string::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        if (name == "--help" || name == "-h") {
            options.help = true;
            continue;
        }
        if (name != "--story" && name != "--log-level") {
            std::fprintf(stderr, "zm_demo: unknown option %s\n", argv[i]);
            return std::nullopt;
        }
        if (!value) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "zm_demo: %s needs a value\n", name.c_str());
                return std::nullopt;
            }
            value = argv[++i];
        }
        if (name == "--story") {
            options.story = findStory(*value);
            if (!options.story) {
                std::fprintf(stderr, "zm_demo: no story named \"%s\"\n", value->c_str());
                return std::nullopt;
            }
        } else {
            options.logLevel = parseLevel(*value);
            if (!options.logLevel) {
                std::fprintf(stderr, "zm_demo: --log-level needs a level number, not \"%s\"\n", value->c_str());
                return std::nullopt;
            }
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = parseOptions(argc, argv);
    if (!options) {
        printUsage(stderr);
        return 2;
    }
    if (options->help) {
        printUsage(stdout);
        return 0;
    }

    // Leaked on purpose: the module's threads may still write to it while the
    // process exits.
    auto* console = new ZMDemoConsole();
    auto& logger = ZMCoreEmulator::shared().logger();
    if (options->logLevel) {
        const int threshold = *options->logLevel;
        logger.setLineObserver([console, threshold](const ZMLogLine& line) {
            if (line.level <= threshold) console->logLine(line);
        });
    }

    console->plain(std::string("Chat-room module demo, story \"") + options->story->name +
                   "\", on the built-in core emulator");
    ZMDemoStory story(*console);
    for (auto chapter : options->story->chapters) (story.*chapter)();
    const int exitCode = story.finish(options->story->name);
    logger.setLineObserver({});
    return exitCode;
}
