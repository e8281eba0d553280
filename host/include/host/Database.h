// The runtime's variable and channel database as the host keeps it.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "IRtdb.h"

namespace host {

// Results of the database slots besides 0 (success).
constexpr int RTDB_UNKNOWN_NAME = -1;  // no variable of that name, or channel without a type
constexpr int RTDB_WRONG_TYPE = -2;    // the slot's type is not the variable's or channel's
constexpr int RTDB_BAD_ARGUMENT = -3;  // null name or null pointer

// A project variable: one of integer, floating point or text, fixed when it is defined.
struct Variable {
    DATATYPE type = DATATYPE_NONE;
    int intValue = 0;
    double doubleValue = 0.0;
    std::string text;

    std::string toString() const;
};

// A runtime channel: the type the project gave it and what the driver last pushed into it.
struct Channel {
    DATATYPE type = DATATYPE_NONE;        // NONE: not defined, slot 7 fails
    DATATYPE pushedType = DATATYPE_NONE;  // slot of the last push (11 int, 12 double, 13 text)
    int pushes = 0;                       // every push, accepted or not
    int intValue = 0;
    double doubleValue = 0.0;
    std::string text;

    // The last pushed value in its pushed type; empty before the first push.
    std::string toString() const;
};

class Database final : public IRtdb {
public:
    Database() = default;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() = default;

    // Variables. Defining a name again replaces the variable, type included. Empty names are
    // refused (false).
    bool defineInt(const std::string& name, int value = 0);
    bool defineDouble(const std::string& name, double value = 0.0);
    bool defineText(const std::string& name, const std::string& value = std::string());
    bool remove(const std::string& name);
    void clearVariables();
    std::optional<Variable> variable(const std::string& name) const;
    std::vector<std::pair<std::string, Variable>> variables() const;  // sorted by name

    // Channels by 0-based runtime index.
    void defineChannel(int index, DATATYPE type);
    // Defines channels 0..types.size()-1 with the given types; earlier pushes are forgotten.
    void defineChannels(const std::vector<DATATYPE>& types);
    std::optional<Channel> channel(int index) const;
    std::map<int, Channel> channels() const;
    int totalPushes() const;
    void resetPushes();

    // IRtdb, by name.
    int GetValueType(const char* name, DATATYPE* type) override;
    int GetIntValue(const char* name, int* value) override;
    int GetDoubleValue(const char* name, double* value) override;
    int GetStringValue(const char* name, std::string* value) override;
    int SetIntValue(const char* name, int value) override;
    int SetDoubleValue(const char* name, double value) override;
    int SetStringValue(const char* name, std::string* value) override;
    // IRtdb, by channel.
    int GetChannelType(int channel, DATATYPE* type) override;
    int Reserved8() override { return 0; }
    int Reserved9() override { return 0; }
    int Reserved10() override { return 0; }
    int SetChannelInt(int channel, int value) override;
    int SetChannelDouble(int channel, double value) override;
    int SetChannelString(int channel, std::string* value) override;

private:
    bool define(const std::string& name, Variable value);
    // The variable of `name` when it has `type`, else null with `result` set.
    Variable* typed(const char* name, DATATYPE type, int& result);
    // Records a push of `type` and returns the slot's result; `store` fills the value.
    template <typename Store>
    int push(int index, DATATYPE type, Store store);

    mutable std::mutex mutex_;
    std::map<std::string, Variable> variables_;
    std::map<int, Channel> channels_;
};

}  // namespace host
