#include "system/framework_config.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "graph/json.h"
#include "model/error.h"

namespace kv {

namespace {

[[noreturn]] void invalid(const std::string& what) { throw Error(Vantor::INVALID_CONFIG, what); }

bool parseType(const std::string& key, int32_t& type) {
    if (key.empty() || key.size() > 11) return false;
    for (size_t i = 0; i < key.size(); ++i) {
        if (!(key[i] >= '0' && key[i] <= '9') && !(i == 0 && key[i] == '-' && key.size() > 1)) return false;
    }
    errno = 0;
    long long v = std::strtoll(key.c_str(), nullptr, 10);
    if (errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
    type = static_cast<int32_t>(v);
    return true;
}

bool parseFault(const JsonValue& v, Fault& fault) {
    if (!v.isObject() || v.members.size() != 1) return false;
    const auto& [key, value] = v.members.front();
    if (key == "execute" && value.isInt() && value.integer >= INT32_MIN && value.integer <= INT32_MAX) {
        fault.kind = Fault::Kind::ExecuteCode;
        fault.code = static_cast<int32_t>(value.integer);
        return true;
    }
    if (key == "result" && value.kind == JsonValue::Kind::Null) {
        fault.kind = Fault::Kind::NullResult;
        return true;
    }
    if (key == "throw" && value.isString()) {
        fault.kind = Fault::Kind::Throw;
        fault.text = value.text;
        return true;
    }
    return false;
}

}  // namespace

FrameworkConfig parseFrameworkConfig(const char* data, size_t length) {
    FrameworkConfig out;
    const JsonValue root = parseJson(data, length, Vantor::INVALID_CONFIG, "configuration");
    if (!root.isObject()) invalid("configuration is not a JSON object");
    if (const JsonValue* threads = root.find("threads")) {
        if (!threads->isInt() || threads->integer < 1 || threads->integer > 1024) {
            invalid("\"threads\" is not an integer from 1 to 1024");
        }
        out.threads = static_cast<int>(threads->integer);
    }
    if (const JsonValue* faults = root.find("faults")) {
        if (!faults->isObject()) invalid("\"faults\" is not an object");
        for (const auto& [key, value] : faults->members) {
            int32_t type;
            Fault fault;
            if (!parseType(key, type)) invalid("fault key \"" + key + "\" is not a decimal algorithm type");
            if (!parseFault(value, fault)) {
                invalid("fault for type " + key +
                        " is not {\"execute\": CODE}, {\"result\": null} or {\"throw\": TEXT}");
            }
            out.faults[type] = fault;
        }
    }
    return out;
}

}  // namespace kv
