#include "Device/PropertyListFrame.h"
#include "Mux/MuxFrame.h"
#include "Support/Testing.h"

#include <initializer_list>

using namespace tdw;
using namespace tdw::simulator;

namespace {

Data bytes(std::initializer_list<unsigned> numbers)
{
    Data data;
    for (const unsigned number : numbers)
        data.push_back(static_cast<std::byte>(number));
    return data;
}

} // namespace

TEST(MuxFrameDecoder, FindsTheSameFramesHoweverTheBytesArrive)
{
    const MuxFrame frames[] = { { 1, 8, 0x01020304, bytes({ 'x', 'y' }) }, { 0, 3, 7, {} } };
    Data stream;
    for (const MuxFrame& frame : frames) {
        const Data encoded = encodeMuxFrame(frame);
        stream.insert(stream.end(), encoded.begin(), encoded.end());
    }
    for (std::size_t step = 1; step <= stream.size(); ++step) {
        MuxFrameDecoder decoder;
        std::vector<MuxFrame> found;
        for (std::size_t start = 0; start < stream.size(); start += step) {
            decoder.append(std::span(stream).subspan(start, std::min(step, stream.size() - start)));
            while (auto frame = *decoder.next())
                found.push_back(*std::move(frame));
        }
        EXPECT_THAT(found, testing::ElementsAreArray(frames)) << step << " bytes at a time";
    }
}

TEST(PropertyListFrameDecoder, RefusesWhatIsTooLongOrNoPropertyList)
{
    for (const Data& stream : { bytes({ 0x7f, 255, 255, 255 }), bytes({ 0, 0x10, 0, 1 }),
             bytes({ 0, 0, 0, 0 }), bytes({ 0, 0, 0, 3, 'a', 'b', 'c' }) }) {
        PropertyListFrameDecoder decoder;
        decoder.append(stream);
        EXPECT_FALSE(decoder.next());
    }
}
