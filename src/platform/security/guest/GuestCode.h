#pragma once

#include "platform/security/guest/GuestFlags.h"
#include "platform/security/guest/GuestLookup.h"
#include "platform/security/guest/SecCode.h"

#include <memory>

namespace qv {

/// The result of a look-up, bound to the process by its descriptors.
class GuestCode final : public SecCode {
public:
    GuestCode(std::shared_ptr<ProcessFileSystem> system, GuestRecord record, GuestVerdict verdict);

    std::int32_t copySigningInformation(std::uint32_t flags, Value* information) const override;
    std::int32_t checkValidityWithErrors(const Requirement* requirement,
                                         Error* error) const override;

    [[nodiscard]] bool isUnchanged() const override;

    [[nodiscard]] const GuestObservation& observation() const noexcept {
        return record_.observation;
    }
    [[nodiscard]] const StaticCode& staticCode() const noexcept { return *record_.code; }
    [[nodiscard]] const GuestVerdict& verdict() const noexcept { return verdict_; }

    /// Success while the image that was looked up still runs; else kNoSuchCode, or the errno of
    /// what could not be asked.
    [[nodiscard]] Error checkStillRunning() const;

private:
    [[nodiscard]] Error judge(const Requirement* requirement) const;
    [[nodiscard]] bool showsSameExecutable() const;

    std::shared_ptr<ProcessFileSystem> system_;
    GuestRecord record_;
    GuestVerdict verdict_;
};

} // namespace qv
