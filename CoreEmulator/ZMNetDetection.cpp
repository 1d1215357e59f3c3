#include <VemoIMLibCore/ZMNetDetection.h>

#include <CoreEmulator/ZMEmulatedNaviDataManager.h>

void ZMNetDetection::detectNavi(bool force, SuccessBlock success, ErrorBlock error) {
    ZMEmulatedNaviDataManager::shared().detectNavi(force, std::move(success), std::move(error));
}
