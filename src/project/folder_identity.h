// Which folders are one, or lie in each other: by what the system knows them as and not by their
// names, since a link or a second mount leads to the same folder. A few looks at folders; any
// thread.
#pragma once

#include <string>

namespace vantrell {

/// The nearest folder at or above this one that is the top of a repository, without links in its
/// path; the folder itself if there is none.
std::string repositoryFolder(const std::string& folder);

/// Work in one of them changes files of the other: they are of one repository, and one is or
/// contains the other.
bool shareFiles(const std::string& one, const std::string& other);

}  // namespace vantrell
