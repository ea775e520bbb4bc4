// The model in the device file's JSON form, both ways, and the journal's inspection forms.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "platform/vdev/model.h"

namespace vdev {

// The model as a device file would hold it (loading the result gives the same model back).
nlohmann::json modelToJson(const Model& m);
// Reads a model from a device file's JSON. On failure, error names the place (a JSON path such
// as "interfaces[3].slot") and the problem; m is then unspecified.
bool modelFromJson(const nlohmann::json& j, Model* m, std::string* error);

nlohmann::json interfaceToJson(const Interface& i);
nlohmann::json hwTablesToJson(const Journal& jr, const ScopeKey* only);
// One journal entry as the control socket shows it.
nlohmann::json entryToJson(const Relay& r);
nlohmann::json entryToJson(const Announcement& a);
nlohmann::json entryToJson(const Anomaly& a);
nlohmann::json entryToJson(const CommandLogEntry& c);
nlohmann::json scopeToJson(const ScopeKey& s);
std::string hexBytes(const std::vector<uint8_t>& b);
std::string addrText(uint8_t family, const std::array<uint8_t, 16>& addr);
// Parses an IPv4 or IPv6 address; family 1 or 2.
bool parseAddr(const std::string& text, uint8_t* family, std::array<uint8_t, 16>* addr);

}  // namespace vdev
