#pragma once

#include <functional>
#include <string>

// Re-detection of the navigation (server address) data.
class ZMNetDetection {
public:
    using SuccessBlock = std::function<void(const std::string& navi, const std::string& ip,
                                            const std::string& net)>;
    using ErrorBlock = std::function<void()>;

    // Runs the detection; calls exactly one callback later, on a core thread.
    // An empty callback is skipped.
    static void detectNavi(bool force, SuccessBlock success, ErrorBlock error);
};
