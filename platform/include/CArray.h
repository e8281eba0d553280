// MFC-style arrays of the runtime: CArray<TYPE, ARG_TYPE>, CStringArray, CByteArray.
#pragma once

#include <vector>

#include "CString.h"

template <class TYPE, class ARG_TYPE = const TYPE&>
class CArray {
public:
    CArray() = default;
    virtual ~CArray() = default;
    CArray(const CArray&) = default;
    CArray& operator=(const CArray&) = default;

    int GetSize() const { return static_cast<int>(m_data.size()); }
    int GetCount() const { return GetSize(); }
    int GetUpperBound() const { return GetSize() - 1; }
    bool IsEmpty() const { return m_data.empty(); }

    // New elements are zero or empty; elements beyond the new size are dropped.
    void SetSize(int newSize, int growBy = -1) {
        (void)growBy;
        m_data.resize(newSize > 0 ? static_cast<size_t>(newSize) : 0u);
    }
    void RemoveAll() { m_data.clear(); }
    void FreeExtra() { m_data.shrink_to_fit(); }

    const TYPE& GetAt(int index) const { return m_data[static_cast<size_t>(index)]; }
    TYPE& GetAt(int index) { return m_data[static_cast<size_t>(index)]; }
    void SetAt(int index, ARG_TYPE element) { m_data[static_cast<size_t>(index)] = element; }
    TYPE& ElementAt(int index) { return m_data[static_cast<size_t>(index)]; }
    const TYPE& ElementAt(int index) const { return m_data[static_cast<size_t>(index)]; }
    TYPE& operator[](int index) { return m_data[static_cast<size_t>(index)]; }
    const TYPE& operator[](int index) const { return m_data[static_cast<size_t>(index)]; }
    TYPE* GetData() { return m_data.data(); }
    const TYPE* GetData() const { return m_data.data(); }

    void SetAtGrow(int index, ARG_TYPE element) {
        if (index >= GetSize())
            SetSize(index + 1);
        m_data[static_cast<size_t>(index)] = element;
    }
    int Add(ARG_TYPE element) {
        m_data.push_back(element);
        return GetSize() - 1;
    }
    int Append(const CArray& other) {
        int first = GetSize();
        m_data.insert(m_data.end(), other.m_data.begin(), other.m_data.end());
        return first;
    }
    void Copy(const CArray& other) { m_data = other.m_data; }
    void InsertAt(int index, ARG_TYPE element, int count = 1) {
        if (index > GetSize())
            SetSize(index);
        m_data.insert(m_data.begin() + index, static_cast<size_t>(count), element);
    }
    void RemoveAt(int index, int count = 1) {
        m_data.erase(m_data.begin() + index, m_data.begin() + index + count);
    }

private:
    std::vector<TYPE> m_data;
};

class CStringArray : public CArray<CString, const CString&> {};
class CByteArray : public CArray<unsigned char, unsigned char> {};
