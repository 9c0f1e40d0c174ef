// Where the media of a presentation lie: a folder beside the playlist, of a name that no other run has.
#pragma once

#include <string>

namespace Orvane::Muxora::Tools {

// The playlist names the folder, and takes its place in one step when all is there: nobody ever reads half of one, and
// what a cache keeps under an address never changes.
class PresentationFolder {
  public:
    // Makes "STEM-KIND-" and 8 random digits beside `playlist`. Throws Failure.
    PresentationFolder(const std::string& playlist, const std::string& kind);
    // Removes what was made, unless it was kept.
    ~PresentationFolder();
    PresentationFolder(const PresentationFolder&) = delete;
    PresentationFolder& operator=(const PresentationFolder&) = delete;

    const std::string& Path() const { return path_; }
    // As the playlist names it (RFC 3986), with a slash behind it.
    std::string Address() const;
    // The playlist has been put in place: this folder stays, those of earlier runs go.
    void Keep();

  private:
    std::string parent_;
    std::string prefix_;
    std::string path_;
    bool kept_ = false;
};

}  // namespace Orvane::Muxora::Tools
