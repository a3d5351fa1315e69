#include "Trust/TrustDialog.h"

namespace tdw::simulator {

namespace {

std::optional<std::string_view> refusalOfLockedDevice(Trust trust)
{
    if (trust == Trust::Locked)
        return "PasswordProtected";
    if (trust == Trust::EscrowLocked)
        return "EscrowLocked";
    return std::nullopt;
}

} // namespace

void TrustDialog::setTrust(Trust trust)
{
    m_trust = trust;
    m_answer.reset();
    m_requests = 0;
    m_isShown = false;
}

std::optional<std::string_view> TrustDialog::refusalToPair(ConnectionType connection)
{
    switch (m_trust) {
    case Trust::Trusts:
    case Trust::ForgotHost:
    case Trust::ForgotHostInTls:
        return std::nullopt;
    case Trust::Asks:
        return askUser();
    case Trust::Denies:
        return "UserDeniedPairing";
    case Trust::Locked:
    case Trust::EscrowLocked:
    case Trust::AfterFirstUnlock:
    case Trust::BeforeFirstUnlock:
        return "PasswordProtected";
    case Trust::FindMyLocked:
        return "FMiPProtected";
    case Trust::Managed:
        return "MCProtected";
    case Trust::ManagedChallenge:
        return "MCChallengeRequired";
    case Trust::UsbOnly:
        if (connection == ConnectionType::Network)
            return "PairingProhibitedOverThisConnection";
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string_view> TrustDialog::askUser()
{
    ++m_requests;
    if (m_acceptAfter && m_requests >= *m_acceptAfter)
        m_answer = Answer::Accept;
    if (!m_answer) {
        m_isShown = true;
        return "PairingDialogResponsePending";
    }
    m_isShown = false;
    if (*m_answer == Answer::Deny)
        return "UserDeniedPairing";
    return std::nullopt;
}

std::optional<std::string_view> TrustDialog::refusalToValidate() const
{
    if (m_trust == Trust::Locked)
        return "PasswordProtected";
    return std::nullopt;
}

std::optional<std::string_view> TrustDialog::refusalToStartSession() const
{
    return refusalOfLockedDevice(m_trust);
}

std::optional<std::string_view> TrustDialog::refusalToStartService() const
{
    if (m_trust == Trust::BeforeFirstUnlock)
        return "MissingValue";
    return refusalOfLockedDevice(m_trust);
}

} // namespace tdw::simulator
