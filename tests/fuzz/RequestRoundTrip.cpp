#include "tests/fuzz/RequestRoundTrip.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "agent/JsonWriter.h"
#include "agent/RunMode.h"
#include "core/driver/MockDriver.h"
#include "core/model/Json.h"
#include "core/routing/ActionRouter.h"
#include "core/routing/Clock.h"

namespace velmora::fuzz {

namespace {

constexpr const char* kTarget = "org.example.editor";

[[noreturn]] void broken(const char* promise, const std::string& detail) {
    std::fprintf(stderr, "broken promise: %s\n%s\n", promise, detail.c_str());
    std::abort();
}

// Thrown out of the run callback to leave runRequest before anything is written.
struct SkipInput {};

bool hasNegativeIndex(const DriverRequest& request) {
    for (const auto& action : request.actions) {
        if (action.selector && action.selector->index && *action.selector->index < 0) {
            return true;
        }
    }
    return false;
}

// A small desktop that selectors, queries and assertions can find things in.
MockDriver makeDesktop() {
    std::vector<ElementInfo> elements{
        {"AXWindow", "Untitled", "main", false, std::nullopt, Rect{0, 0, 800, 600}},
        {"AXButton", "Save", "save", false, std::nullopt, Rect{10, 10, 80, 24}},
        {"AXButton", "Cancel", std::nullopt, false, std::nullopt, Rect{100, 10, 80, 24}},
        {"AXTextArea", std::nullopt, "body", true, "Grüße / hello", Rect{0, 40, 800, 560}},
        {"AXStaticText", "Label", std::nullopt, true, std::nullopt, std::nullopt},
    };
    return MockDriver(std::string(kTarget), std::move(elements), "ab12");
}

// The whole of a memory stream's text, once closed.
class MemoryOutput {
  public:
    MemoryOutput() : stream_(open_memstream(&data_, &size_)) {
        if (stream_ == nullptr) {
            broken("an in-memory output stream opens", "open_memstream failed");
        }
    }
    ~MemoryOutput() {
        if (stream_ != nullptr) {
            std::fclose(stream_);
        }
        std::free(data_);
    }
    std::FILE* stream() { return stream_; }
    std::string text() {
        std::fclose(stream_);
        stream_ = nullptr;
        return std::string(data_, size_);
    }

  private:
    char* data_ = nullptr;
    size_t size_ = 0;
    std::FILE* stream_;
};

}  // namespace

RoundTrip checkRequestRoundTrip(std::string_view input) {
    MockDriver driver = makeDesktop();
    MemoryOutput output;
    bool ran = false;
    int status = 0;
    try {
        status = runRequest(
            input,
            [&](const DriverRequest& request) {
                if (hasNegativeIndex(request)) {
                    throw SkipInput{};
                }
                ran = true;
                auto epoch = Clock::TimePoint(std::chrono::seconds(1'800'000'000));
                ActionRouter router(driver, Clock::fixed(epoch, "f"), 4, 0.3, [](double) {});
                return router.run(request);
            },
            output.stream());
    } catch (const SkipInput&) {
        return RoundTrip::skipped;
    }
    std::string text = output.text();

    if (text.empty() || text.back() != '\n') {
        broken("one document and a newline", text);
    }
    Json document;
    try {
        document = Json::parse(text);  // strict: trailing text after the document fails
    } catch (const std::exception& error) {
        broken("the output parses back as JSON", std::string(error.what()) + "\n" + text);
    }
    std::optional<DriverResponse> decoded;
    try {
        decoded = decodeResponse(document);
    } catch (const std::exception& error) {
        broken("the output decodes as a response", std::string(error.what()) + "\n" + text);
    }
    const DriverResponse& response = *decoded;
    auto again = renderDocument(document);
    if (!again || *again != text) {
        broken("rendering what was read back gives the same text", text);
    }
    if (response.protocolVersion != kDriverBrokerProtocol) {
        broken("every response speaks the agent's protocol", text);
    }
    if (!ran) {
        if (status != kExitUndecodable || response.sessionId != "unknown" || response.ok ||
            !response.receipts.empty() || !response.error ||
            response.error->rfind("decode: ", 0) != 0) {
            broken("an undecodable request gets the decode response and status 3", text);
        }
    } else if (status != (response.ok ? kExitOk : kExitActionsFailed)) {
        broken("the exit status follows ok", text);
    }
    return RoundTrip::checked;
}

}  // namespace velmora::fuzz
