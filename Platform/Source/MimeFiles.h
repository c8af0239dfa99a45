// The files that say which type a name stands for, and which applications a type has. What isn't understood in them is
// passed over. Everything may throw std::bad_alloc.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace Brindle::Vok::Platform
{

/// `*`, `?`, and [a-z], [!a-z] or [^a-z] for a character in UTF-8. `ignoresCase` takes A to Z for a to z.
bool MatchesGlob(std::string_view name, std::string_view pattern, bool ignoresCase) noexcept;

/// Looks for the type of a name. A match with the case as it stands comes before one without, then counts the weight,
/// then the pattern's length, then which was found first.
class TypeSearch
{
public:
    enum class Form
    {
        globs, ///< type:pattern
        globs2 ///< weight:type:pattern:flags; the flag cs is for patterns whose case matters
    };

    explicit TypeSearch(std::string_view name) : name(name) {}

    /// Files come in order, the user's first. One that says __NOGLOBS__ of a type takes it out of those that follow.
    void Add(std::string_view file, Form form);

    /// Empty when there is none.
    std::string const& Type() const noexcept { return best; }

private:
    using Rank = std::tuple<bool, std::uint32_t, std::size_t>;
    void AddPattern(std::string_view type, std::string_view pattern, std::uint32_t weight, bool isCaseSensitive);

    std::string const name;
    std::set<std::string, std::less<>> closed;
    std::string best;
    Rank rank;
};

/// Of one type, the names of .desktop files.
struct MimeApplications
{
    std::vector<std::string> defaults;
    std::vector<std::string> added;
    std::vector<std::string> removed;
    std::vector<std::string> cached;
};

/// Out of mimeapps.list or mimeinfo.cache.
MimeApplications ReadMimeApplications(std::string_view file, std::string_view type);

} // namespace Brindle::Vok::Platform
