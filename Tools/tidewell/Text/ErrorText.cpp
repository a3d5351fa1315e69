#include "Text/ErrorText.h"

#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Platform/Values/Utf8.h"
#include "Platform/Values/Value.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <vector>

namespace tdw::cli {

namespace {

/// A server that crashed may have left pages on its standard error; a few lines are enough.
constexpr std::size_t kMostLines = 12;

std::string textUnder(const Error& error, std::string_view key)
{
    const std::string* text = error.userInfo().stringAt(key);
    return text ? *text : std::string();
}

std::string reasonOf(const Error& error)
{
    auto reason = error.failureReason();
    if (reason.find_first_not_of(" \t\r\n") == std::string::npos)
        return "Error " + std::to_string(error.code()) + " in \"" + error.domain() + "\".";
    return reason;
}

/// The lines that hold something, each safe to show.
std::vector<std::string> shownLines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty() && lines.size() < kMostLines) {
        auto line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.find_first_not_of(" \t") != std::string_view::npos)
            lines.push_back(withControlCharactersEscaped(line));
    }
    return lines;
}

/// Collects the lines of one message.
class Message {
public:
    Message(std::string beginning, std::string_view reason)
    {
        m_lines.push_back(std::move(beginning));
        addLines(reason, "", false);
    }

    /// Whether the last line is a whole sentence.
    bool isFinished() const { return m_lines.back().ends_with('.'); }

    /// Goes on in the last line.
    void addReason(std::string_view reason) { addLines(reason, ": ", false); }

    void addNote(std::string_view label, std::string_view text)
    {
        if (!text.empty())
            addLines(text, "  " + std::string(label), true);
    }

    std::string text() const
    {
        std::string result;
        for (const std::string& line : m_lines)
            result += line + "\n";
        return result;
    }

private:
    void addLines(std::string_view text, std::string_view prefix, bool onNewLine)
    {
        if (onNewLine)
            m_lines.emplace_back();
        m_lines.back() += prefix;
        bool isFirst = true;
        for (const std::string& line : shownLines(text)) {
            if (isFirst)
                m_lines.back() += line;
            else
                m_lines.push_back("    " + line);
            isFirst = false;
        }
    }

    std::vector<std::string> m_lines;
};

void addParallelCauses(Message& message, const Error& error)
{
    const Array* array = error.userInfo().arrayAt(kMultipleUnderlyingErrorsKey);
    if (!array)
        return;
    for (const Value& entry : *array) {
        if (const Error* cause = entry.asError())
            message.addNote("Cause: ", reasonOf(*cause));
    }
}

std::string textBeginningWith(std::string beginning, const Error& error, ErrorDetail detail)
{
    const bool isVerbose = detail == ErrorDetail::Everything;
    const auto chain = causeChain(error);
    auto previous = reasonOf(error);
    Message message(std::move(beginning), previous);
    for (const Error& link : std::span(chain).subspan(1)) {
        auto reason = reasonOf(link);
        if (reason != previous && !message.isFinished())
            message.addReason(reason);
        else if (reason != previous && isVerbose)
            message.addNote("Cause: ", reason);
        previous = std::move(reason);
    }
    for (const Error& link : chain) {
        if (isVerbose)
            addParallelCauses(message, link);
        message.addNote("Detail: ", textUnder(link, kTDWErrorDetailKey));
    }
    message.addNote("", adviceFor(error));
    if (isVerbose)
        message.addNote("", textUnder(chain.back(), kDebugDescriptionErrorKey));
    return message.text();
}

} // namespace

std::string errorText(const Error& error, const ErrorStyle& style)
{
    return textBeginningWith(
        coloured("tidewell:", Colour::Red, style.colours) + " ", error, style.detail);
}

std::string warningText(const Error& warning, const ErrorStyle& style)
{
    return textBeginningWith(coloured("tidewell: warning:", Colour::Magenta, style.colours) + " ",
        warning, style.detail);
}

} // namespace tdw::cli
