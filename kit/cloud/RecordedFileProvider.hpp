#pragma once
// A sandbox Mac's stand-in for the file provider. Every regular file in a cloud folder is a cloud
// item, uploaded and free of conflicts unless its recorded state says otherwise; evicting a file
// keeps its name and length and gives back its blocks (it becomes a sparse file with nothing
// allocated), which is what an evicted file looks like to a size walk.
//
// The states are kept in one small file of the sandbox's, outside the cloud folders so that they
// are neither measured nor released: one line per file, the state, a tab, and the file's path as
// the Mac names it ("/Users/ann/Library/CloudStorage/Dropbox/Taxes.pdf"). A path holding a line
// feed can't be recorded; the sandbox lays out none.
//   notUploaded  not yet uploaded: never evicted
//   pinned       set to stay available offline: eviction fails as the provider refuses it
//   conflict     has unresolved conflicts
//   failing      eviction fails with another error

#include <string_view>

namespace brimstell {

// Below the home folder.
inline constexpr std::string_view recordedStatesFile = "Library/Application Support/FileProvider/recorded-states";

namespace recordedState {
inline constexpr std::string_view notUploaded = "notUploaded";
inline constexpr std::string_view pinned = "pinned";
inline constexpr std::string_view conflict = "conflict";
inline constexpr std::string_view failing = "failing";
}  // namespace recordedState

}  // namespace brimstell
