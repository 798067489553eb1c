#pragma once

#include <memory>
#include <string>

// A name shared by every frame of one owner. Frames carry their owner's name;
// copying a long name into each new frame would cost a heap allocation per
// frame on the audio thread, so names are kept once in a table and frames hold
// a reference to the entry. The table keeps at most kMaxNames names; beyond
// that a name is held privately (it then allocates, as a plain copy would).
class DRAVSharedName
{
public:
    static constexpr size_t kMaxNames = 1024;

    DRAVSharedName();
    explicit DRAVSharedName(const std::string& name);

    const std::string& Get() const { return *name_; }

private:
    std::shared_ptr<const std::string> name_;
};
