#include "Interfaces/TDWResponse.h"

#include "CapturedStream.h"
#include "Interfaces/TDWServerState.h"
#include "Platform/Values/PropertyList.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <limits>

using namespace tdw;
using namespace matchers;

namespace {

/// What a call left on the standard streams, and what it returned.
struct Written {
    int status = 0;
    std::string output;
    std::string standardError;

    Dictionary envelope() const
    {
        const auto decoded = decodePropertyList(std::as_bytes(std::span(output)));
        return decoded && decoded->asDictionary() ? *decoded->asDictionary() : Dictionary();
    }
};

template <typename Call>
Written written(Call&& call)
{
    CapturedStream output(STDOUT_FILENO);
    CapturedStream standardError(STDERR_FILENO);
    const int status = call();
    return { status, output.text(), standardError.text() };
}

class TDWResponse : public testing::Test {
protected:
    void SetUp() override { __gTDWServerInitialized = true; }
};

Value parsedBack(const Error& error)
{
    const auto bytes = encodeXmlPropertyList(TDWClientErrorResponse(error));
    return *decodePropertyList(*bytes);
}

} // namespace

TEST_F(TDWResponse, GivesEachErrorTheStatusOfItsCode)
{
    const std::pair<std::int64_t, int> cases[] = { { 0, 1 }, { 1, 1 }, { -3, 3 }, { -256, 256 },
        { (std::int64_t { 7 } << 32) - 5, 5 }, { std::int64_t { 1 } << 32, 0 } };
    for (const auto& row : cases) {
        const auto result
            = written([&] { return TDWSerializeErrorResponse(Error("d", row.first, "r")); });
        EXPECT_EQ(result.status, row.second) << row.first;
        const auto envelope = result.envelope();
        ASSERT_EQ(envelope.size(), 1U);
        const Dictionary* error = envelope.find("error")->asDictionary();
        EXPECT_EQ(error->size(), 4U);
        EXPECT_EQ(error->find("code")->asInt64(), row.first);
        const auto age = std::chrono::system_clock::now() - *error->find("date")->asDate();
        EXPECT_LT(std::chrono::abs(age), std::chrono::seconds(60));
    }
}

TEST_F(TDWResponse, PutsAnErrorInThePlaceOfAPayloadThatCannotBeWritten)
{
    const auto result = written([] {
        return TDWSerializeResponse(Dictionary { { "cause", Error("d", 1, "no property list") } });
    });
    EXPECT_EQ(result.status, 3851);
    EXPECT_EQ(result.envelope().find("error")->asDictionary()->find("code")->asInt64(), 3851);

    const Error unwritable("d", -7, Dictionary { { "cause", Array { Error("d", 1, "r") } } });
    const auto nothing = written([&] { return TDWSerializeErrorResponse(unwritable); });
    EXPECT_EQ(nothing.status, 7);
    EXPECT_EQ(nothing.output, "");
    EXPECT_THAT(nothing.standardError,
        MatchesRegex(
            "\\[ERROR\\] \\(Source/Interfaces/TDWResponse.cpp:[0-9]+\\) Unexpected failure "
            "to serialize result of TDWCreateErrorResponseDictionary for error Error "
            "Domain=d Code=-7 .*\n"));
}

TEST_F(TDWResponse, SaysWhenTheEnvelopeCannotBeDelivered)
{
    CapturedStream standardError(STDERR_FILENO);
    CapturedStream output(STDOUT_FILENO);
    const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    dup2(full.descriptor(), STDOUT_FILENO);

    EXPECT_EQ(TDWSerializeResponse(Dictionary {}), 1);
    EXPECT_EQ(TDWSerializeErrorResponse(Error("d", -3, "r")), 3);
    EXPECT_THAT(standardError.text(), HasSubstr("No space left on device"));
}

TEST_F(TDWResponse, ComplainsAboutAServerThatForgotToInitializeAndGoesOn)
{
    __gTDWServerInitialized = false;
    const auto result = written([] { return TDWSerializeResponse(Dictionary {}); });
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.envelope().isEmpty());
    EXPECT_THAT(result.standardError,
        MatchesRegex("\\[ERROR\\] \\(Source/Interfaces/TDWResponse.cpp:[0-9]+\\) This server "
                     "implementation forgot to invoke TDWServerInitialize early in the process "
                     "lifecycle!\n"));
}

TEST_F(TDWResponse, CarriesNestedUnderlyingErrorsThere)
{
    const Error first("first", 1, "one");
    const Error second("second", std::numeric_limits<std::int64_t>::min(), "two");
    const Error middle("middle", 0,
        Dictionary { { kMultipleUnderlyingErrorsKey, Array { first, "not an error", second } } });
    const Error outer("outer", -3,
        Dictionary { { kUnderlyingErrorKey, middle }, { "TDWErrorDetail", "ProductVersion" } });

    std::optional<Error> error;
    EXPECT_EQ(TDWResponseUnwrap(parsedBack(outer), error), std::nullopt);

    const Error expected("outer", -3,
        Dictionary {
            { kUnderlyingErrorKey,
                Error("middle", 0,
                    Dictionary { { kMultipleUnderlyingErrorsKey, Array { first, second } } }) },
            { "TDWErrorDetail", "ProductVersion" } });
    EXPECT_EQ(error, expected);

    const Error empty("d", 5, Dictionary { { kMultipleUnderlyingErrorsKey, Array {} } });
    TDWResponseUnwrap(parsedBack(empty), error);
    EXPECT_EQ(error, empty);
}

TEST_F(TDWResponse, UnwrapsWhateverItIsGiven)
{
    const Dictionary malformed { { kLocalizedFailureReasonErrorKey, "Malformed error response." } };
    const Value blob = Array { 1, 2 };
    const struct {
        Value envelope;
        std::optional<Value> payload;
        std::optional<Error> error;
        int diagnostics;
    } cases[] = {
        { Dictionary { { "response", Dictionary {} } }, Dictionary {}, {}, 0 },
        { Dictionary { { "error", Dictionary {} }, { "response", 1 } }, 1, {}, 0 },
        { Dictionary { { "error", Dictionary {} } }, {}, Error(kTidewellErrorDomain, -1, malformed),
            2 },
        { Dictionary { { "error", "text" } }, {}, Error(kTidewellErrorDomain, -1, malformed), 2 },
        { Dictionary { { "error", Dictionary { { "domain", "d" }, { "code", "5" } } } }, {},
            Error("d", -1, malformed), 0 },
        { Dictionary { { "error", Dictionary { { "domain", "d" }, { "code", 5 } } },
              { "serverErrorBlob", blob } },
            {}, Error("d", 5, Dictionary { { "serverErrorBlob", blob } }), 0 },
        { Dictionary {}, {},
            Error(kTidewellErrorDomain, 2, "Failed to communicate with the server."), 1 },
        { "no dictionary", {},
            Error(kTidewellErrorDomain, 2, "Failed to communicate with the server."), 1 },
    };
    for (const auto& row : cases) {
        std::optional<Value> payload;
        std::optional<Error> error;
        const auto result = written([&] {
            payload = TDWResponseUnwrap(row.envelope, error);
            return 0;
        });
        EXPECT_EQ(payload, row.payload) << row.envelope.debugDescription();
        EXPECT_EQ(error, row.error) << row.envelope.debugDescription();
        EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'),
            row.diagnostics)
            << result.standardError;
    }
}
