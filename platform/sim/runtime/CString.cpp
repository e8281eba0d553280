// MFC-compatible CString of the simulated runtime.
#include "CString.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "SimInternal.h"

namespace {

// White space as the C locale's isspace sees it: blank, tab, CR, LF, VT, FF.
bool isBlank(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

int clampIndex(int index, int length) {
    return index < 0 ? 0 : (index > length ? length : index);
}

}  // namespace

CString::CString() = default;
CString::CString(const char* text) : m_str(text ? text : "") {}
CString::CString(const char* text, int length) {
    if (text && length > 0)
        m_str.assign(text, static_cast<size_t>(length));
}
CString::CString(char ch, int repeat) {
    if (repeat > 0)
        m_str.assign(static_cast<size_t>(repeat), ch);
}
CString::CString(const CString& other) = default;
CString::CString(CString&& other) noexcept : m_str(std::move(other.m_str)) {}
CString::~CString() = default;

CString& CString::operator=(const CString& other) = default;
CString& CString::operator=(CString&& other) noexcept {
    m_str = std::move(other.m_str);
    return *this;
}
CString& CString::operator=(const char* text) {
    m_str = text ? text : "";
    return *this;
}
CString& CString::operator=(char ch) {
    m_str.assign(1, ch);
    return *this;
}

int CString::GetLength() const {
    return static_cast<int>(m_str.size());
}
bool CString::IsEmpty() const {
    return m_str.empty();
}
void CString::Empty() {
    m_str.clear();
}
const char* CString::GetString() const {
    return m_str.c_str();
}
CString::operator const char*() const {
    return m_str.c_str();
}

char CString::GetAt(int index) const {
    return (index >= 0 && index < GetLength()) ? m_str[static_cast<size_t>(index)] : '\0';
}
void CString::SetAt(int index, char ch) {
    if (index >= 0 && index < GetLength())
        m_str[static_cast<size_t>(index)] = ch;
}
char CString::operator[](int index) const {
    return GetAt(index);
}

CString& CString::operator+=(const CString& text) {
    m_str += text.m_str;
    return *this;
}
CString& CString::operator+=(const char* text) {
    if (text)
        m_str += text;
    return *this;
}
CString& CString::operator+=(char ch) {
    m_str += ch;
    return *this;
}

int CString::Compare(const char* text) const {
    return strcmp(m_str.c_str(), text ? text : "");
}
int CString::CompareNoCase(const char* text) const {
    return strcasecmp(m_str.c_str(), text ? text : "");
}

// Searches see the text as a C string, up to its first zero character, as MFC's do.
int CString::Find(char ch, int start) const {
    if (start < 0 || start >= GetLength())
        return -1;
    const char* hit = strchr(GetString() + start, ch);
    return hit ? static_cast<int>(hit - GetString()) : -1;
}
int CString::Find(const char* sub, int start) const {
    if (!sub || start < 0 || start > GetLength())
        return -1;
    const char* hit = strstr(GetString() + start, sub);
    return hit ? static_cast<int>(hit - GetString()) : -1;
}
int CString::ReverseFind(char ch) const {
    const char* hit = strrchr(GetString(), ch);
    return hit ? static_cast<int>(hit - GetString()) : -1;
}

CString CString::Mid(int first) const {
    return Mid(first, GetLength());
}
CString CString::Mid(int first, int count) const {
    first = clampIndex(first, GetLength());
    if (count < 0)
        count = 0;
    count = std::min(count, GetLength() - first);
    CString out;
    out.m_str = m_str.substr(static_cast<size_t>(first), static_cast<size_t>(count));
    return out;
}
CString CString::Left(int count) const {
    return Mid(0, count);
}
CString CString::Right(int count) const {
    count = clampIndex(count, GetLength());
    return Mid(GetLength() - count, count);
}

CString& CString::MakeUpper() {
    for (char& c : m_str)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return *this;
}
CString& CString::MakeLower() {
    for (char& c : m_str)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return *this;
}
CString& CString::TrimLeft() {
    size_t i = 0;
    while (i < m_str.size() && isBlank(m_str[i]))
        ++i;
    m_str.erase(0, i);
    return *this;
}
CString& CString::TrimRight() {
    size_t n = m_str.size();
    while (n > 0 && isBlank(m_str[n - 1]))
        --n;
    m_str.resize(n);
    return *this;
}
CString& CString::Trim() {
    return TrimRight().TrimLeft();
}
CString& CString::Trim(char ch) {
    size_t first = m_str.find_first_not_of(ch);
    if (first == std::string::npos) {
        m_str.clear();
    } else {
        m_str = m_str.substr(first, m_str.find_last_not_of(ch) - first + 1);
    }
    return *this;
}

int CString::Replace(const char* oldText, const char* newText) {
    if (!oldText || !*oldText)
        return 0;
    const std::string from(oldText), to(newText ? newText : "");
    int count = 0;
    for (size_t pos = m_str.find(from); pos != std::string::npos;
         pos = m_str.find(from, pos + to.size())) {
        m_str.replace(pos, from.size(), to);
        ++count;
    }
    return count;
}
int CString::Remove(char ch) {
    size_t before = m_str.size();
    m_str.erase(std::remove(m_str.begin(), m_str.end(), ch), m_str.end());
    return static_cast<int>(before - m_str.size());
}
int CString::Insert(int index, const char* text) {
    if (text)
        m_str.insert(static_cast<size_t>(clampIndex(index, GetLength())), text);
    return GetLength();
}
// A negative index counts from the start, as in MFC.
int CString::Delete(int index, int count) {
    if (index < 0)
        index = 0;
    if (index < GetLength() && count > 0) {
        m_str.erase(static_cast<size_t>(index), static_cast<size_t>(count));
    }
    return GetLength();
}

// The text is built aside first, so the arguments may point into this string.
void CString::FormatV(const char* format, va_list args) {
    m_str = format ? sim::detail::vformat(format, args) : std::string();
}
void CString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}
void CString::AppendFormat(const char* format, ...) {
    CString tail;
    va_list args;
    va_start(args, format);
    tail.FormatV(format, args);
    va_end(args);
    m_str += tail.m_str;
}

char* CString::GetBuffer(int minLength) {
    if (minLength > GetLength())
        m_str.resize(static_cast<size_t>(minLength));
    return &m_str[0];
}
void CString::ReleaseBuffer(int newLength) {
    if (newLength < 0)
        newLength = static_cast<int>(strlen(m_str.c_str()));
    m_str.resize(static_cast<size_t>(newLength));
}

CString operator+(const CString& a, const CString& b) {
    CString out(a);
    out += b;
    return out;
}
CString operator+(const CString& a, const char* b) {
    CString out(a);
    out += b;
    return out;
}
CString operator+(const char* a, const CString& b) {
    CString out(a);
    out += b;
    return out;
}
CString operator+(const CString& a, char b) {
    CString out(a);
    out += b;
    return out;
}
bool operator==(const CString& a, const CString& b) {
    return a.Compare(b) == 0;
}
bool operator==(const CString& a, const char* b) {
    return a.Compare(b) == 0;
}
bool operator==(const char* a, const CString& b) {
    return b.Compare(a) == 0;
}
bool operator!=(const CString& a, const CString& b) {
    return !(a == b);
}
bool operator!=(const CString& a, const char* b) {
    return !(a == b);
}
bool operator!=(const char* a, const CString& b) {
    return !(a == b);
}
bool operator<(const CString& a, const CString& b) {
    return a.Compare(b) < 0;
}
