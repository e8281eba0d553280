#include "host/Database.h"

#include <sstream>

namespace host {

namespace {

std::string formatValue(DATATYPE type, int i, double d, const std::string& text) {
    std::ostringstream out;
    switch (type) {
        case DATATYPE_INT:
            out << i;
            break;
        case DATATYPE_DOUBLE:
            out << d;
            break;
        case DATATYPE_STRING:
            out << text;
            break;
        default:
            break;
    }
    return out.str();
}

}  // namespace

std::string Variable::toString() const {
    return formatValue(type, intValue, doubleValue, text);
}

std::string Channel::toString() const {
    return formatValue(pushedType, intValue, doubleValue, text);
}

bool Database::define(const std::string& name, Variable value) {
    if (name.empty()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    variables_[name] = std::move(value);
    return true;
}

bool Database::defineInt(const std::string& name, int value) {
    Variable v;
    v.type = DATATYPE_INT;
    v.intValue = value;
    return define(name, std::move(v));
}

bool Database::defineDouble(const std::string& name, double value) {
    Variable v;
    v.type = DATATYPE_DOUBLE;
    v.doubleValue = value;
    return define(name, std::move(v));
}

bool Database::defineText(const std::string& name, const std::string& value) {
    Variable v;
    v.type = DATATYPE_STRING;
    v.text = value;
    return define(name, std::move(v));
}

bool Database::remove(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    return variables_.erase(name) > 0;
}

void Database::clearVariables() {
    std::lock_guard<std::mutex> lock(mutex_);
    variables_.clear();
}

std::optional<Variable> Database::variable(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = variables_.find(name);
    if (it == variables_.end()) {
        return std::nullopt;
    }
    return it->second;
}

std::vector<std::pair<std::string, Variable>> Database::variables() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {variables_.begin(), variables_.end()};
}

void Database::defineChannel(int index, DATATYPE type) {
    std::lock_guard<std::mutex> lock(mutex_);
    channels_[index].type = type;
}

void Database::defineChannels(const std::vector<DATATYPE>& types) {
    std::lock_guard<std::mutex> lock(mutex_);
    channels_.clear();
    for (std::size_t i = 0; i < types.size(); ++i) {
        channels_[static_cast<int>(i)].type = types[i];
    }
}

std::optional<Channel> Database::channel(int index) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = channels_.find(index);
    if (it == channels_.end()) {
        return std::nullopt;
    }
    return it->second;
}

std::map<int, Channel> Database::channels() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return channels_;
}

int Database::totalPushes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    int total = 0;
    for (const auto& entry : channels_) {
        total += entry.second.pushes;
    }
    return total;
}

void Database::resetPushes() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : channels_) {
        Channel fresh;
        fresh.type = entry.second.type;
        entry.second = fresh;
    }
}

// Unknown names leave *type alone: the driver presets it and reads an untouched value as
// "not a variable".
int Database::GetValueType(const char* name, DATATYPE* type) {
    if (name == nullptr || type == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = variables_.find(name);
    if (it == variables_.end()) {
        return RTDB_UNKNOWN_NAME;
    }
    *type = it->second.type;
    return 0;
}

// Typing is strict: a slot for another type than the variable's is refused, never converted.
Variable* Database::typed(const char* name, DATATYPE type, int& result) {
    if (name == nullptr) {
        result = RTDB_BAD_ARGUMENT;
        return nullptr;
    }
    auto it = variables_.find(name);
    if (it == variables_.end()) {
        result = RTDB_UNKNOWN_NAME;
        return nullptr;
    }
    if (it->second.type != type) {
        result = RTDB_WRONG_TYPE;
        return nullptr;
    }
    result = 0;
    return &it->second;
}

int Database::GetIntValue(const char* name, int* value) {
    if (value == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_INT, result)) {
        *value = v->intValue;
    }
    return result;
}

int Database::GetDoubleValue(const char* name, double* value) {
    if (value == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_DOUBLE, result)) {
        *value = v->doubleValue;
    }
    return result;
}

int Database::GetStringValue(const char* name, std::string* value) {
    if (value == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_STRING, result)) {
        *value = v->text;
    }
    return result;
}

int Database::SetIntValue(const char* name, int value) {
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_INT, result)) {
        v->intValue = value;
    }
    return result;
}

int Database::SetDoubleValue(const char* name, double value) {
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_DOUBLE, result)) {
        v->doubleValue = value;
    }
    return result;
}

int Database::SetStringValue(const char* name, std::string* value) {
    if (value == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    int result = 0;
    if (Variable* v = typed(name, DATATYPE_STRING, result)) {
        v->text = *value;
    }
    return result;
}

int Database::GetChannelType(int channel, DATATYPE* type) {
    if (type == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = channels_.find(channel);
    if (it == channels_.end() || it->second.type == DATATYPE_NONE) {
        return RTDB_UNKNOWN_NAME;
    }
    *type = it->second.type;
    return 0;
}

// Every push is recorded, even into an undefined channel or of the wrong type, so that a
// driver fault shows in the record; only the result tells the driver it was refused.
template <typename Store>
int Database::push(int index, DATATYPE type, Store store) {
    std::lock_guard<std::mutex> lock(mutex_);
    Channel& c = channels_[index];
    ++c.pushes;
    c.pushedType = type;
    store(c);
    if (c.type == DATATYPE_NONE) {
        return RTDB_UNKNOWN_NAME;
    }
    return c.type == type ? 0 : RTDB_WRONG_TYPE;
}

int Database::SetChannelInt(int channel, int value) {
    return push(channel, DATATYPE_INT, [value](Channel& c) { c.intValue = value; });
}

int Database::SetChannelDouble(int channel, double value) {
    return push(channel, DATATYPE_DOUBLE, [value](Channel& c) { c.doubleValue = value; });
}

int Database::SetChannelString(int channel, std::string* value) {
    if (value == nullptr) {
        return RTDB_BAD_ARGUMENT;
    }
    return push(channel, DATATYPE_STRING, [value](Channel& c) { c.text = *value; });
}

}  // namespace host
