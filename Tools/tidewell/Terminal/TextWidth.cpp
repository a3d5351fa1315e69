#include "Terminal/TextWidth.h"

#include <locale.h>
#include <wchar.h>

namespace tdw::cli {

namespace {

/// Made once and kept, because the system reads files for it.
locale_t utf8Locale()
{
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

/// Makes this thread classify characters as UTF-8 for as long as it lives.
class Utf8Locale {
public:
    Utf8Locale()
        : m_previous(uselocale(utf8Locale()))
    {
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;
    Utf8Locale(Utf8Locale&&) = delete;
    Utf8Locale& operator=(Utf8Locale&&) = delete;
    ~Utf8Locale() { uselocale(m_previous); }

private:
    locale_t m_previous;
};

} // namespace

std::size_t displayWidth(std::string_view text)
{
    const Utf8Locale locale;
    mbstate_t state {};
    std::size_t width = 0;
    while (!text.empty()) {
        wchar_t character = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): it is safe with a state of our own
        const std::size_t length = mbrtowc(&character, text.data(), text.size(), &state);
        if (length == 0 || length > text.size()) {
            // A byte that belongs to no character is shown as one replacement character.
            state = {};
            ++width;
            text.remove_prefix(1);
            continue;
        }
        const int columns = wcwidth(character);
        width += columns > 0 ? static_cast<std::size_t>(columns) : 0;
        text.remove_prefix(length);
    }
    return width;
}

} // namespace tdw::cli
