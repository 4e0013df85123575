#include "Platform/PropertyListNesting.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace tarvik::plist {

namespace {

constexpr std::string_view kBinaryMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;

// Counts open <array> and <dict> elements; comments and character data are skipped as the
// library skips them, so that a closing tag hidden there cannot lower the count.
bool xmlWithinNesting(std::string_view text, int maxNesting) {
    int depth = 0;
    std::size_t at = text.find('<');
    while (at != std::string_view::npos) {
        std::string_view rest = text.substr(at);
        std::size_t end = std::string_view::npos;
        if (rest.starts_with("<!--")) {
            end = text.find("-->", at + 4);
        } else if (rest.starts_with("<![CDATA[")) {
            end = text.find("]]>", at + 9);
        } else {
            end = text.find('>', at);
            if (end == std::string_view::npos) {
                break;
            }
            bool closing = rest.starts_with("</");
            std::size_t nameStart = at + (closing ? 2 : 1);
            std::string_view tag = text.substr(nameStart, end - nameStart);
            std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n/"));
            bool selfClosing = !tag.empty() && tag.back() == '/';
            if (name == "array" || name == "dict") {
                if (closing) {
                    --depth;
                } else if (!selfClosing && ++depth > maxNesting) {
                    return false;
                }
            }
        }
        if (end == std::string_view::npos) {
            break;
        }
        at = text.find('<', end + 1);
    }
    return true;
}

std::uint64_t bigEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number = (number << 8) | static_cast<std::uint8_t>(bytes[at + i]);
    }
    return number;
}

// The object table of a binary list: where each object starts, and the references an array,
// set or dictionary holds.
class BinaryObjects {
  public:
    explicit BinaryObjects(std::string_view bytes) : bytes_(bytes) {}

    // False when the trailer or the offset table is not one the SDK can follow.
    bool readTrailer() {
        if (bytes_.size() < kBinaryMagic.size() + kTrailerSize) {
            return false;
        }
        std::size_t trailer = bytes_.size() - kTrailerSize;
        offsetSize_ = static_cast<std::uint8_t>(bytes_[trailer + 6]);
        referenceSize_ = static_cast<std::uint8_t>(bytes_[trailer + 7]);
        count_ = bigEndian(bytes_, trailer + 8, 8);
        top_ = bigEndian(bytes_, trailer + 16, 8);
        tableOffset_ = bigEndian(bytes_, trailer + 24, 8);
        return offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8 &&
               count_ >= 1 && count_ <= trailer && top_ < count_ && tableOffset_ <= trailer &&
               (trailer - tableOffset_) / offsetSize_ >= count_;
    }

    std::uint64_t count() const { return count_; }
    std::uint64_t top() const { return top_; }

    // Whether object `index` is an array, set or dictionary and, if so, the objects it refers
    // to; none when they cannot be read.
    std::optional<bool> readContainer(std::uint64_t index, std::vector<std::uint64_t>& out) const {
        out.clear();
        std::uint64_t at = bigEndian(bytes_, tableOffset_ + index * offsetSize_, offsetSize_);
        if (at >= tableOffset_) {
            return std::nullopt;
        }
        auto marker = static_cast<std::uint8_t>(bytes_[at]);
        std::uint8_t kind = marker >> 4;
        if (kind != 0xA && kind != 0xC && kind != 0xD) {
            return false;
        }
        std::uint64_t entries = marker & 0x0F;
        at += 1;
        if (entries == 0x0F) {
            // The count follows as an integer object of 2^n bytes.
            if (at >= tableOffset_ || (static_cast<std::uint8_t>(bytes_[at]) >> 4) != 0x1) {
                return std::nullopt;
            }
            std::size_t size = std::size_t{1} << (bytes_[at] & 0x0F);
            if (size > 8 || tableOffset_ - at - 1 < size) {
                return std::nullopt;
            }
            entries = bigEndian(bytes_, at + 1, size);
            at += 1 + size;
        }
        std::uint64_t listed = kind == 0xD ? entries * 2 : entries;
        if (entries > tableOffset_ || (tableOffset_ - at) / referenceSize_ < listed) {
            return std::nullopt;
        }
        for (std::uint64_t i = 0; i < listed; ++i) {
            std::uint64_t reference = bigEndian(bytes_, at + i * referenceSize_, referenceSize_);
            if (reference >= count_) {
                return std::nullopt;
            }
            out.push_back(reference);
        }
        return true;
    }

  private:
    std::string_view bytes_;
    std::uint8_t offsetSize_ = 0;
    std::uint8_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t tableOffset_ = 0;
};

// Walks the objects reachable from the top, depth first on a stack of its own, working out for
// each how deep it nests and how many values it expands to.
bool binaryWithinNesting(std::string_view bytes, int maxNesting, std::size_t maxValues) {
    BinaryObjects objects(bytes);
    if (!objects.readTrailer()) {
        return false;
    }
    const std::uint64_t valueLimit = std::max<std::uint64_t>(maxValues, objects.count());
    enum class State : std::uint8_t { New, Open, Done };
    std::vector<State> state(objects.count(), State::New);
    std::vector<int> height(objects.count(), 0);
    std::vector<std::uint64_t> values(objects.count(), 0);
    struct Frame {
        std::uint64_t index;
        std::vector<std::uint64_t> children;
        std::size_t next = 0;
    };
    // Only containers are stacked, so the stack's height is the nesting reached so far.
    std::vector<Frame> stack;
    auto visit = [&](std::uint64_t index) {
        Frame frame{index, {}};
        std::optional<bool> container = objects.readContainer(index, frame.children);
        if (!container) {
            return false;
        }
        if (!*container) {
            state[index] = State::Done;
            values[index] = 1;
            return true;
        }
        if (stack.size() >= static_cast<std::size_t>(maxNesting)) {
            return false;
        }
        state[index] = State::Open;
        stack.push_back(std::move(frame));
        return true;
    };
    if (!visit(objects.top())) {
        return false;
    }
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.children.size()) {
            std::uint64_t child = frame.children[frame.next++];
            if (state[child] == State::Open) {
                return false;  // a container inside itself
            }
            if (state[child] == State::New && !visit(child)) {
                return false;
            }
            continue;
        }
        // All members are done: this container's figures follow from theirs.
        int deepest = 0;
        std::uint64_t total = 1;
        for (std::uint64_t child : frame.children) {
            deepest = std::max(deepest, height[child]);
            total = std::min(total + values[child], valueLimit + 1);
        }
        // A shared container met again is not stacked again, so the depth reached through it
        // is checked here, not by the stack's height.
        if (deepest + 1 > maxNesting || total > valueLimit) {
            return false;
        }
        height[frame.index] = deepest + 1;
        values[frame.index] = total;
        state[frame.index] = State::Done;
        stack.pop_back();
    }
    return true;
}

}  // namespace

bool withinNesting(std::string_view bytes, int maxNesting, std::size_t maxValues) {
    if (bytes.starts_with(kBinaryMagic)) {
        return binaryWithinNesting(bytes, maxNesting, maxValues);
    }
    return xmlWithinNesting(bytes, maxNesting);
}

}  // namespace tarvik::plist
