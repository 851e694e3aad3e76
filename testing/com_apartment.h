#pragma once
// Tests only: the calling thread in the COM apartment for the life of the
// object, as the run drivers put the indexer's thread. The XML reader needs
// it on Windows (its document is a COM object); POSIX has no COM and the
// calls do nothing.

#include "platform/process.h"

namespace ngitest {

class CComApartment {
public:
    CComApartment() : m_Initialized(platform::ComInitialize() >= 0) {}
    ~CComApartment() {
        if (m_Initialized) platform::ComUninitialize();
    }
    CComApartment(const CComApartment&) = delete;
    CComApartment& operator=(const CComApartment&) = delete;

private:
    bool m_Initialized;
};

}  // namespace ngitest
