// MFC-style narrow-character string of the runtime. Texts are bytes (UTF-8 on the panel).
// The members are implemented by the runtime library.
#pragma once

#include <cstdarg>
#include <string>

class CString {
public:
    CString();
    CString(const char* text);  // NOLINT: implicit, as in MFC
    CString(const char* text, int length);
    CString(char ch, int repeat = 1);
    CString(const CString& other);
    CString(CString&& other) noexcept;
    ~CString();

    CString& operator=(const CString& other);
    CString& operator=(CString&& other) noexcept;
    CString& operator=(const char* text);
    CString& operator=(char ch);

    int GetLength() const;
    bool IsEmpty() const;
    void Empty();
    const char* GetString() const;
    operator const char*() const;  // NOLINT: implicit, as in MFC

    char GetAt(int index) const;
    void SetAt(int index, char ch);
    char operator[](int index) const;

    CString& operator+=(const CString& text);
    CString& operator+=(const char* text);
    CString& operator+=(char ch);

    int Compare(const char* text) const;
    int CompareNoCase(const char* text) const;

    // -1 when not found; searching starts at `start`.
    int Find(char ch, int start = 0) const;
    int Find(const char* sub, int start = 0) const;
    int ReverseFind(char ch) const;

    // Out-of-range arguments are clamped as MFC does.
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Left(int count) const;
    CString Right(int count) const;

    CString& MakeUpper();
    CString& MakeLower();
    CString& Trim();  // C-locale white space
    CString& TrimLeft();
    CString& TrimRight();
    CString& Trim(char ch);

    int Replace(const char* oldText, const char* newText);
    int Remove(char ch);
    int Insert(int index, const char* text);
    int Delete(int index, int count = 1);

    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* format, va_list args);
    void AppendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

    char* GetBuffer(int minLength);
    void ReleaseBuffer(int newLength = -1);

private:
    std::string m_str;
};

CString operator+(const CString& a, const CString& b);
CString operator+(const CString& a, const char* b);
CString operator+(const char* a, const CString& b);
CString operator+(const CString& a, char b);
bool operator==(const CString& a, const CString& b);
bool operator==(const CString& a, const char* b);
bool operator==(const char* a, const CString& b);
bool operator!=(const CString& a, const CString& b);
bool operator!=(const CString& a, const char* b);
bool operator!=(const char* a, const CString& b);
bool operator<(const CString& a, const CString& b);
