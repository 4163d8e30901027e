#include "admin_only.h"

#include <sddl.h>

namespace dkpf {

// Protected DACL, so that nothing is inherited: all access for administrators (BA) and the system account (SY).
static constexpr wchar_t ADMIN_ONLY_SDDL[] = L"D:P(A;;GA;;;BA)(A;;GA;;;SY)";

AdminOnly::AdminOnly()
{
    m_attributes.nLength = sizeof(m_attributes);
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(ADMIN_ONLY_SDDL, SDDL_REVISION_1,
                                                              &m_attributes.lpSecurityDescriptor, nullptr))
        m_attributes.lpSecurityDescriptor = nullptr;
}

AdminOnly::~AdminOnly()
{
    if (m_attributes.lpSecurityDescriptor != nullptr)
        LocalFree(m_attributes.lpSecurityDescriptor);
}

SECURITY_ATTRIBUTES* AdminOnly::Attributes()
{
    return m_attributes.lpSecurityDescriptor != nullptr ? &m_attributes : nullptr;
}

}  // namespace dkpf
