/*
 * Security of named objects that only administrators and the system account may open.
 */
#ifndef DKPF_AGENT_ADMIN_ONLY_H
#define DKPF_AGENT_ADMIN_ONLY_H

#include <windows.h>

namespace dkpf {

class AdminOnly {
public:
    AdminOnly();
    ~AdminOnly();
    AdminOnly(const AdminOnly&) = delete;
    AdminOnly& operator=(const AdminOnly&) = delete;

    /* nullptr where the system could not build it: GetLastError says why. Valid as long as the object. */
    SECURITY_ATTRIBUTES* Attributes();

private:
    SECURITY_ATTRIBUTES m_attributes{};
};

}  // namespace dkpf

#endif
