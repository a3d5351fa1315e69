#include "Doctor/DeviceChecks.h"

#include "Devices/PairingState.h"
#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Errors/Warnings.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorKinds.h"
#include "Support/TraceSteps.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace tdw::cli {

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// A step that takes longer is worth a warning.
constexpr Milliseconds kSlow { 2000 };

/// The library's codes for lockdown: why a device refuses.
enum LockdownCode : std::int64_t {
    MissingValue = -12,
    PasswordProtected = -17,
    UserDenied = -18,
    DialogPending = -19,
    MissingRecord = -29,
    EscrowLocked = -35,
    LostMode = -37,
    Managed = -38,
    ManagedChallenge = -39,
};

constexpr std::string_view kReconnect = "Unlock the device, disconnect it and connect it again.";

struct StageName {
    std::string_view step;
    std::string_view name;
};

/// The stages of a conversation in their order.
constexpr StageName kStages[] = {
    { kLookUpStep, "look-up" },
    { kConnectionStep, "connection" },
    { kQueryStep, "query" },
    { kValueStep, "a value" },
    { kRecordStep, "pairing record" },
    { kHandshakeStep, "handshake" },
    { kServiceStep, "a service" },
};

/// What the stages before the handshake are about.
bool isBeforeTrust(std::string_view step)
{
    return step == kLookUpStep || step == kConnectionStep || step == kQueryStep
        || step == kValueStep;
}

std::string nameOf(std::string_view step)
{
    const auto* const found = std::ranges::find(kStages, step, &StageName::step);
    if (found != std::end(kStages))
        return std::string(found->name);
    // "battery of" is "battery".
    return std::string(step.substr(0, step.rfind(' ')));
}

class Examination {
public:
    explicit Examination(const DeviceProbe& probe)
        : m_probe(probe)
    {
        std::ranges::copy_if(probe.steps, std::back_inserter(m_steps),
            [&](const TraceEvent& step) { return step.subject == probe.udid; });
    }

    Findings findings()
    {
        if (m_probe.isGone)
            add("reachable", Health::Failure, "is not listed any more since it was asked",
                "Connect it again.");
        else if (m_probe.info)
            examineAnswer(*m_probe.info);
        else
            examineFailure(m_probe.info.error());
        addTimes();
        return std::move(m_findings);
    }

private:
    Finding& add(std::string_view check, Health health, std::string text, std::string remedy = {})
    {
        return m_findings.emplace_back(Finding { .check = check,
            .health = health,
            .text = std::move(text),
            .remedy = std::move(remedy),
            .device = m_probe.udid });
    }

    /// The step that the conversation ended in.
    const TraceEvent* brokenStep() const
    {
        const auto isUnderWay = [](const TraceEvent& step) {
            return !step.end;
        };
        if (const auto found = std::ranges::find_if(m_steps, isUnderWay); found != m_steps.end())
            return &*found;
        const auto last = std::find_if(m_steps.rbegin(), m_steps.rend(),
            [](const TraceEvent& step) { return step.code != 0; });
        return last == m_steps.rend() ? nullptr : &*last;
    }

    void examineFailure(const Error& error)
    {
        const TraceEvent* broken = brokenStep();
        const bool isReached = broken && !isBeforeTrust(broken->step);
        const bool isSilent = isServerTimeout(error) || (broken && !broken->end);
        std::string text = isSilent ? "does not answer" : error.failureReason();
        if (!isSilent && broken && broken->step == kConnectionStep)
            text = "accepts no connection";
        if (broken)
            text += " (in: " + nameOf(broken->step) + ")";
        std::string remedy = isSilent ? std::string() : adviceFor(error);
        if (remedy.empty())
            remedy = kReconnect;
        if (isReached)
            add("reachable", Health::Ok, "answers");
        else
            add("reachable", Health::Failure, text, remedy).error = error;
        addRecord();
        if (!isReached)
            return;
        const bool isOfTrust = broken->step == kHandshakeStep || broken->step == kRecordStep;
        add(isOfTrust ? "trust" : "values", Health::Failure, text, remedy).error = error;
    }

    void examineAnswer(const Value& info)
    {
        std::string who = "answers";
        if (const std::string* name = info.stringAt(kTDWDeviceInfoDeviceName))
            who += ": \"" + *name + "\"";
        if (const std::string* product = info.stringAt(kTDWDeviceInfoProductType))
            who += ", " + *product;
        if (const std::string* version = info.stringAt(kTDWDeviceInfoProductVersion))
            who += ", system " + *version;
        add("reachable", Health::Ok, who);
        addRecord();
        const auto state = pairingStateOf(info);
        if (state && *state == TDWDevicePairingStatePaired)
            examineTrusted(info);
        else
            examineRefusal(info);
    }

    void examineTrusted(const Value& info)
    {
        add("trust", Health::Ok, "accepts this computer");
        const Value* diagnosis = info.find(kTDWDeviceInfoDiagnosis);
        if (!diagnosis)
            return;
        if (const Value* locked = diagnosis->find(kTDWDiagnosisLocked);
            locked && locked->asBoolean())
            add("lock", Health::Ok,
                *locked->asBoolean() ? "is locked now, and answers all the same" : "is unlocked");
        addFirstUnlock(diagnosis->find(kTDWDiagnosisServiceError));
        add("lost-mode", Health::Ok, "no sign of it");
        const Value* managed = diagnosis->find(kTDWDiagnosisManaged);
        const bool isManaged = managed && managed->asBoolean().value_or(false);
        add("managed", Health::Ok,
            isManaged ? "an organisation manages it, and allows this computer" : "not managed");
        addValues(info);
    }

    void addFirstUnlock(const Value* serviceError)
    {
        const auto error
            = serviceError ? std::optional(TDWErrorParse(*serviceError)) : std::nullopt;
        if (!error) {
            add("first-unlock", Health::Ok, "its services start, as after its first unlock");
            return;
        }
        const auto code = error->code();
        const bool isWaiting
            = code == MissingValue || code == PasswordProtected || code == EscrowLocked;
        Finding& finding = isWaiting
            ? add("first-unlock", Health::Warning,
                "has not been unlocked since its start, and starts no services",
                "Unlock the device once.")
            : add("first-unlock", Health::Failure, "starts no services: " + error->failureReason(),
                adviceFor(*error));
        finding.error = error;
    }

    /// What of a trusted device could not be read all the same.
    void addValues(const Value& info)
    {
        const Value* battery = info.find(kTDWDeviceInfoBatteryError);
        if (!battery) {
            add("values", Health::Ok, "can be read");
            return;
        }
        const Error error = TDWErrorParse(*battery);
        add("values", Health::Failure, "the battery cannot be read: " + error.failureReason(),
            adviceFor(error))
            .error
            = error;
    }

    void examineRefusal(const Value& info)
    {
        const auto warnings = warningsIn(info);
        const auto found = std::ranges::find_if(warnings, isUnpairedDevice);
        const std::int64_t code = found == warnings.end() ? MissingRecord : found->code();
        if (code == MissingRecord) {
            for (const char* check : { "lock", "lost-mode", "managed" })
                add(check, Health::Ok, "not told to a computer that the device does not trust");
            return;
        }
        const auto refuse = [&](std::string_view check, Health health, std::string text) {
            add(check, health, std::move(text), adviceFor(*found)).error = *found;
        };
        switch (code) {
        case PasswordProtected:
        case EscrowLocked:
            return refuse("lock", Health::Warning,
                code == EscrowLocked
                    ? "has not been unlocked since its start, and serves no computer until then"
                    : "is locked, and serves this computer only while it is unlocked");
        case UserDenied:
            return refuse("trust", Health::Warning, "its user has refused this computer");
        case DialogPending:
            return refuse("trust", Health::Warning, "asks its user whether to trust this computer");
        case LostMode:
            return refuse("lost-mode", Health::Warning, "is in lost mode");
        case Managed:
        case ManagedChallenge:
            return refuse("managed", Health::Warning,
                "an organisation manages it, and does not allow this computer");
        default:
            return refuse("trust", Health::Failure, found->failureReason());
        }
    }

    void addRecord()
    {
        if (!m_probe.hasRecord) {
            const Error& error = m_probe.hasRecord.error();
            add("record", Health::Failure, error.failureReason(), adviceFor(error)).error = error;
        } else if (*m_probe.hasRecord) {
            add("record", Health::Ok, "is held");
        } else {
            add("record", Health::Warning, "none that can be used: this computer is not paired",
                "tidewell pair " + m_probe.udid);
        }
    }

    void addTimes()
    {
        Dictionary times;
        std::string text;
        Health health = Health::Ok;
        for (const auto& [step, name] : kStages) {
            const auto found = std::ranges::find_if(m_steps,
                [step = step](const TraceEvent& event) { return event.step == step && event.end; });
            if (found == m_steps.end())
                continue;
            const Milliseconds duration = *found->end - found->start;
            std::array<char, 32> number {};
            (void)std::snprintf(number.data(), number.size(), "%.1f", duration.count());
            text += (text.empty() ? "" : ", ") + std::string(name) + " " + number.data() + " ms";
            times.set(name, duration.count());
            if (duration > kSlow)
                health = Health::Warning;
        }
        if (text.empty())
            return;
        add("times", health, text,
            health == Health::Ok
                ? ""
                : "A slow step shows a bad cable, a busy device or a weak network.")
            .details.set("Milliseconds", std::move(times));
    }

    const DeviceProbe& m_probe;
    std::vector<TraceEvent> m_steps;
    Findings m_findings;
};

} // namespace

Findings deviceFindings(const DeviceProbe& probe)
{
    return Examination(probe).findings();
}

} // namespace tdw::cli
