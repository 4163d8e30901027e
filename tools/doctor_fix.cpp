#include "doctor_fix.h"

#include "doctor_checks.h"
#include "registration.h"
#include "registry_key.h"
#include "text.h"

namespace dkpf {

namespace {

class RegistryFix : public FixPort {
public:
    DWORD EnableProvider() override
    {
        const RegistryKey key(PERFORMANCE_KEY, KEY_SET_VALUE);
        return key.Error() != ERROR_SUCCESS ? key.Error()
                                            : static_cast<DWORD>(RegDeleteValueW(key.Handle(), VALUE_DISABLED));
    }
};

}  // namespace

FixPort& SystemFix()
{
    static RegistryFix fix;
    return fix;
}

FixResult FixProvider(const DoctorFacts& facts, FixPort& port)
{
    const auto& disabled = facts.registration.disabled;
    if (!disabled || *disabled == 0)
        return { FixState::NotNeeded, "nothing to fix: the system has not switched the provider off" };
    std::string why;
    if (!ProviderCanOpen(facts, &why))
        return { FixState::Refused, "the provider stays switched off, since its next open would fail: " + why };
    const DWORD error = port.EnableProvider();
    if (error != ERROR_SUCCESS)
        return { FixState::Failed, "the provider could not be switched on again: " + SystemErrorText(error) };
    return { FixState::Done, "the provider was switched on again; programs that read performance data see it when they "
                             "are started again" };
}

const char* FixStateText(FixState state)
{
    switch (state) {
    case FixState::NotNeeded:
        return "not_needed";
    case FixState::Done:
        return "done";
    case FixState::Refused:
        return "refused";
    case FixState::Failed:
        break;
    }
    return "failed";
}

}  // namespace dkpf
