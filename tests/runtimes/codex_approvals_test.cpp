#include "runtimes/codex/codex_approvals.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

const std::string command = "item/commandExecution/requestApproval";
const std::string files = "item/fileChange/requestApproval";
const std::string permissions = "item/permissions/requestApproval";

PermissionRequest question(const std::string& method, const std::string& params,
                           const std::string& item = "") {
  const auto known = json::parseObject(item);
  return codex::approvalQuestion(5, method, *json::parseObject(params), known ? &*known : nullptr);
}

TEST(CodexApprovals, DetailShowsWhatCodexSaysElsewhere) {
  struct Case {
    std::string method, params, item, detail;
  };
  const Case cases[] = {
      // The changes of a file stand only in the item that was announced before.
      {files, R"({"itemId":"c","reason":null,"grantRoot":null})",
       R"({"type":"fileChange","id":"c","changes":[)"
       R"({"path":"/out.txt","kind":{"type":"add"},"diff":"  text\n\n"},)"
       R"({"path":"/a","kind":{"type":"update","move_path":"/b"},"diff":"@@ -1 +1 @@\n-x\n+y\n"},)"
       R"({"path":"/c","kind":"delete"},7,{}]})",
       "Codex is requesting permission to continue.\n\nadd /out.txt\n  text\n\n"
       "update /a -> /b\n@@ -1 +1 @@\n-x\n+y\n\ndelete /c\n\nchange a file"},
      {files, R"({"reason":"tidy","grantRoot":"/etc"})", "", "tidy\n\nWrite access to /etc"},
      {command, R"({"reason":"tidy"})", R"({"command":"rm x"})", "rm x\n\ntidy"},
      {command, R"({"command":"rm y"})", R"({"command":"rm x"})", "rm y"},
      {command, R"({"command":"curl h","networkApprovalContext":{"host":"h","protocol":"https"}})",
       "", "curl h\n\nNetwork access to h (https)"},
      {command, R"({"command":"x","additionalPermissions":{"network":{"enabled":true}}})", "",
       "x\n\n{\n  \"network\": {\n    \"enabled\": true\n  }\n}"},
      {permissions,
       R"({"reason":"why","permissions":{"network":{"enabled":true},)"
       R"("fileSystem":null}})",
       "", "why\n\n{\n  \"network\": {\n    \"enabled\": true\n  }\n}"},
      {permissions, R"({"reason":"why","permissions":{"network":null}})", "", "why"},
  };
  for (const auto& [method, params, item, detail] : cases) {
    EXPECT_EQ(question(method, params, item).detail, detail);
  }
}

}  // namespace
}  // namespace vantrell
