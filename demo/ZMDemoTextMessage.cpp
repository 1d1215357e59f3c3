#include "ZMDemoTextMessage.h"

void ZMDemoTextMessage::decodeWithData(const ZMData& data) {
    auto dict = dictionaryFromJsonData(data);
    if (!dict) {
        setRawJSONData(data);
        return;
    }
    decodeBaseData(*dict);
    auto text = dict->find("content");
    content = (text != dict->end() && text->is_string()) ? text->get<std::string>() : std::string();
}

std::optional<ZMData> ZMDemoTextMessage::encode() const {
    ZMValue dict = encodeBaseData();
    dict["content"] = content;
    const std::string text = dict.dump();
    return ZMData(text.begin(), text.end());
}
