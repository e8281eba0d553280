#include "DevServer.h"

#include <strings.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "DevCtrl.h"

namespace {

constexpr int kNoType = -2;

typedef int (*ConvertFn)(CString text, void* out, bool positive);

// Low 32 bits of an unsigned parse, negated in two's complement when asked.
uint32_t parseLow32(const CString& text, int base, bool negate) {
    const uint32_t value = static_cast<uint32_t>(std::strtoull(text.GetString(), nullptr, base));
    return negate ? 0u - value : value;
}

int cstringToLong(CString text, void* out, bool positive) {
    // The panel's long is 32 bits wide; so is what lands here.
    *static_cast<int32_t*>(out) = static_cast<int32_t>(parseLow32(text, 10, !positive));
    return 0;
}

int cstringToInt(CString text, void* out, bool positive) {
    return cstringToLong(text, out, positive);
}

int cstringToUInt(CString text, void* out, bool positive) {
    *static_cast<uint32_t*>(out) = parseLow32(text, 10, !positive);
    return 0;
}

// Hexadecimal and octal literals lose their sign on purpose.
int cstringToHex(CString text, void* out, bool) {
    *static_cast<uint32_t*>(out) = parseLow32(text, 16, false);
    return 0;
}

int cstringToOct(CString text, void* out, bool) {
    *static_cast<uint32_t*>(out) = parseLow32(text, 8, false);
    return 0;
}

int cstringToFloat(CString text, void* out, bool positive) {
    const float value = std::strtof(text.GetString(), nullptr);
    *static_cast<float*>(out) = positive ? value : -value;
    return 0;
}

int cstringToDouble(CString text, void* out, bool positive) {
    const double value = std::strtod(text.GetString(), nullptr);
    *static_cast<double*>(out) = positive ? value : -value;
    return 0;
}

struct ConvertRow {
    CString format;
    ConvertFn convert;
    CString description;  // carried for readers, never looked up
};

const ConvertRow convert_table[] = {
    {"%d", cstringToInt, "c string to int number"},
    {"%u", cstringToUInt, "c string to unsigned int number"},
    {"%ld", cstringToLong, "c string to long number"},
    {"%x", cstringToHex, "c string to hex number"},
    {"%o", cstringToOct, "c string to oct number"},
    {"%f", cstringToFloat, "c string to float number"},
    {"%lf", cstringToDouble, "c string to float number"},
};

}  // namespace

int truncateToInt(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (value <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(value);
}

namespace {

// Round half away from zero. Out-of-range values saturate the way the panel's
// conversions do (a positive value through 32-bit unsigned), NaN gives 0.
int roundToInt(double value) {
    if (std::isnan(value))
        return 0;
    if (value > 0) {
        const double shifted = value + 0.5;
        const uint32_t bits = shifted >= 4294967296.0 ? UINT32_MAX : static_cast<uint32_t>(shifted);
        return static_cast<int>(bits);
    }
    const double shifted = value - 0.5;
    if (shifted <= static_cast<double>(INT32_MIN))
        return INT32_MIN;
    return static_cast<int>(shifted);
}

// 0 when the call is acceptable, otherwise the code to answer.
int checkCall(const WEXA_DATA& data, const CString& name, const void* buffer) {
    if (buffer == nullptr || name.IsEmpty())
        return DEVCTRL_BAD_ARGUMENT;
    if (data.pRtdbByName == nullptr)
        return DEVCTRL_NO_DATABASE;
    return 0;
}

}  // namespace

int cstringToNumeric(CString text, CString format, void* out) {
    bool positive = true;
    if (!text.IsEmpty() && text[0] == '-') {
        text = text.Mid(1);
        positive = false;
    }
    for (const ConvertRow& row : convert_table) {
        if (strcasecmp(format.GetString(), row.format.GetString()) == 0) {
            return row.convert(text, out, positive);
        }
    }
    return 1;
}

int CDevCtrl::GetParamType_Fun(WEXA_DATA& data, CString name, DATATYPE& type) {
    if (const int refused = checkCall(data, name, &type))
        return refused;
    return data.pRtdbByName->GetValueType(name.GetString(), &type);
}

int CDevCtrl::GetParamValue_Fun(WEXA_DATA& data, CString name, DATATYPE type, void* out) {
    if (const int refused = checkCall(data, name, out))
        return refused;
    IRtdb* rtdb = data.pRtdbByName;
    switch (type) {
        case DATATYPE_INT:
            return rtdb->GetIntValue(name.GetString(), static_cast<int*>(out));
        case DATATYPE_DOUBLE:
            return rtdb->GetDoubleValue(name.GetString(), static_cast<double*>(out));
        case DATATYPE_STRING: {
            std::string text;
            const int result = rtdb->GetStringValue(name.GetString(), &text);
            // Whatever the database answered, the text read so far is delivered.
            *static_cast<CString*>(out) = CString(text.data(), static_cast<int>(text.size()));
            return result;
        }
        default:
            return DEVCTRL_BAD_ARGUMENT;
    }
}

int CDevCtrl::SetParamValue_Fun(WEXA_DATA& data, CString name, DATATYPE type, void* value) {
    if (const int refused = checkCall(data, name, value))
        return refused;
    IRtdb* rtdb = data.pRtdbByName;
    switch (type) {
        case DATATYPE_INT:
            return rtdb->SetIntValue(name.GetString(), *static_cast<const int*>(value));
        case DATATYPE_DOUBLE:
            return rtdb->SetDoubleValue(name.GetString(), *static_cast<const double*>(value));
        case DATATYPE_STRING: {
            const CString& source = *static_cast<const CString*>(value);
            std::string text(source.GetString(), static_cast<size_t>(source.GetLength()));
            return rtdb->SetStringValue(name.GetString(), &text);
        }
        default:
            return DEVCTRL_BAD_ARGUMENT;
    }
}

int CDevServer::SvrGetParaValue(WEXA_DATA& data, CString name, CString& out) {
    out.Empty();
    DATATYPE type = static_cast<DATATYPE>(kNoType);
    if (data.GetParamType_Fun != nullptr) {
        data.GetParamType_Fun(data, name, type);
        // Numeric variables are not delivered as text.
        if (type == DATATYPE_INT || type == DATATYPE_DOUBLE)
            return 0;
        if (type == DATATYPE_STRING) {
            if (data.GetParamValue_Fun != nullptr) {
                data.GetParamValue_Fun(data, name, DATATYPE_STRING, &out);
            }
            return 1;
        }
    }
    // Not a variable: the operand is a literal text.
    out = name;
    return 1;
}

int CDevServer::SvrGetParaValue(WEXA_DATA& data, CString name, int& out) {
    out = 0;
    DATATYPE type = static_cast<DATATYPE>(kNoType);
    if (data.GetParamType_Fun != nullptr) {
        data.GetParamType_Fun(data, name, type);
        switch (type) {
            case DATATYPE_DOUBLE: {
                double value = 0.0;
                if (data.GetParamValue_Fun != nullptr) {
                    data.GetParamValue_Fun(data, name, DATATYPE_DOUBLE, &value);
                }
                out = roundToInt(value);
                return 1;
            }
            case DATATYPE_STRING:
                return 0;
            case DATATYPE_INT: {
                int value = 0;
                if (data.GetParamValue_Fun != nullptr) {
                    data.GetParamValue_Fun(data, name, DATATYPE_INT, &value);
                }
                out = value;
                return 1;
            }
            default:
                break;
        }
    }
    // Not a variable: the operand is a literal number.
    cstringToNumeric(name, "%d", &out);
    return 1;
}

int CDevServer::SvrSetParaValue(WEXA_DATA& data, CString name, int value) {
    DATATYPE type = static_cast<DATATYPE>(kNoType);
    if (data.GetParamType_Fun == nullptr)
        return 0;
    data.GetParamType_Fun(data, name, type);
    switch (type) {
        case DATATYPE_INT:
            if (data.SetParamValue_Fun != nullptr) {
                data.SetParamValue_Fun(data, name, DATATYPE_INT, &value);
            }
            return 1;
        case DATATYPE_DOUBLE: {
            double converted = value;
            if (data.SetParamValue_Fun != nullptr) {
                data.SetParamValue_Fun(data, name, DATATYPE_DOUBLE, &converted);
            }
            return 1;
        }
        default:
            return 0;  // a text variable cannot be set this way
    }
}

// The two trailing arguments are fixed by every caller and do not matter here.
double CDevServer::SvrStr2Double(CString text, int count, int, int) {
    if (count > text.GetLength())
        return 0.0;
    double value = 0.0;
    cstringToNumeric(text.Left(count), "%lf", &value);
    return value;
}
