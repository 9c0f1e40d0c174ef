// The components in one page: both are made through their factories; one gives packets, the other writes a file.
//
//     example_components FOLDER
#include <Muxora.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace Orvane::Muxora;

namespace {

constexpr int kFrames = 50;

AttributeMap Describe(int number) {
    return {{"frametype", FRAME_KIND_VIDEO},
            {"framesubtype", number % 25 == 0 ? FRAME_SUB_I : FRAME_SUB_P},
            {"encodetype", CODEC_H264},
            {"width", 1280},
            {"height", 720},
            {"rate", 25},
            {"timestamp", 40LL * (number + 1)}};
}

// A factory of the registry, as the type that the caller wants.
template <typename Factory>
Factory* Find(const char* name) {
    return dynamic_cast<Factory*>(Basalt::IFactoryUnknown::findFactory(name));
}

bool WriteFile(const std::string& path, const std::vector<unsigned char>& picture) {
    auto* const factory = Find<IFilePackage::IFactory>("FilePackage");
    IFilePackage* const package = factory != nullptr ? factory->create("ovx") : nullptr;
    if (package == nullptr) return false;
    bool good = package->open(path.c_str());
    for (int i = 0; i < kFrames && good; ++i)
        good = package->inputFrame(picture.data(), static_cast<unsigned>(picture.size()), Describe(i));
    good = package->close() && good;
    package->release();
    std::printf("%s: %d frames, last error %u\n", path.c_str(), kFrames, Basalt::getLastError());
    return good;
}

bool MakePackets(const std::vector<unsigned char>& picture) {
    auto* const factory = Find<IMuxora::IFactory>("Muxora");
    IMuxora* const stream = factory != nullptr ? factory->create("ps") : nullptr;
    if (stream == nullptr) return false;
    unsigned long long bytes = 0;
    bool good = true;
    for (int i = 0; i < kFrames && good; ++i) {
        Basalt::TSharedPtr<IMuxoraData> packet;
        good = stream->inputFrame(picture.data(), static_cast<unsigned>(picture.size()), Describe(i)) &&
               stream->getPacket(packet);
        if (good) bytes += packet->getLen();
    }
    std::printf("program stream: %llu bytes in %d packets, version of %s\n", bytes, kFrames,
                stream->getVersion().getBuildDate().c_str());
    stream->release();
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    initMuxoraComponentLibrary();
    // One slice behind a start code.
    std::vector<unsigned char> picture = {0, 0, 0, 1, 0x65};
    picture.resize(4000, 0x55);
    const bool good = WriteFile(std::string(argv[1]) + "/component.ovx", picture) && MakePackets(picture);
    return good ? 0 : 1;
}
