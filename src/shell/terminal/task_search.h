// The search over all tasks, under the names that commands use.
#pragma once

#include "views/task_search.h"

namespace vantrell::shell {

using views::SearchHit;
using views::SearchRequest;
using views::searchTasks;
using views::shortEntryID;
using views::shortEntryIDs;

}  // namespace vantrell::shell
