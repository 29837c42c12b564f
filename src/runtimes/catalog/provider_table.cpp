#include "runtimes/catalog/provider_table.h"

namespace vantrell {

namespace {

using Category = ProviderCategory;
using Location = ProviderExecutionLocation;
using Billing = ProviderBillingMode;

constexpr std::string_view taskletPermission =
    "Tasklet runs outside this Mac. Its workflow permissions are managed in Tasklet; vantrell "
    "confirms the handoff and reports whether the webhook accepted it.";

ProviderDescriptor subscription(AgentProvider id, std::string label, std::string image,
                                std::string summary, bool hasUsageReset = false) {
  return {.id = id,
          .label = std::move(label),
          .shortLabel = std::string(shortLabel(id)),
          .systemImage = std::move(image),
          .capabilities = {.chat = true,
                           .tools = true,
                           .reasoningEffort = true,
                           .usageReporting = true,
                           .manualUsageReset = hasUsageReset,
                           .resumableSessions = true},
          .summary = std::move(summary)};
}

ProviderFacts grok() {
  ProviderFacts facts{
      .descriptor = subscription(AgentProvider::grok, "Grok", "xmark",
                                 "Grok Build using the SuperGrok account signed in on this Mac."),
      .setupHint = "Install the Grok CLI, then sign in with your SuperGrok account.",
      .permissionTexts = {"Grok asks before actions that are not already allowed.",
                          "Grok's safety classifier approves routine actions and escalates others.",
                          "Grok skips ordinary approval prompts. Deny rules, hooks, and any "
                          "configured sandbox still apply."},
      .signInAdvice =
          "Grok needs you to sign in again. Use the Log in button; your SuperGrok "
          "subscription stays in the CLI."};
  facts.program = {
      .name = "grok",
      .candidates = {"~/.grok/bin/grok", "/opt/homebrew/bin/grok", "/usr/local/bin/grok",
                     "/usr/bin/grok"},
      .pathEntries = {"~/.grok/bin", "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin"},
      .customPathKey = "grokExecutablePath",
      .installCommand = "curl -fsSL https://x.ai/cli/install.sh | bash",
      .login = {.arguments = {"login"}, .failure = "Grok login failed.", .saysWhy = true}};
  facts.models = {.efforts = {"low", "medium", "high"}, .canBeAsked = true};
  return facts;
}

ProviderFacts codex() {
  ProviderFacts facts{
      .descriptor = subscription(AgentProvider::codex, "ChatGPT / Codex", "sparkles",
                                 "Codex using the ChatGPT account signed in on this Mac.", true),
      .setupHint =
          "Install Codex (or the ChatGPT Mac app), then sign in with your ChatGPT account.",
      .permissionTexts = {"Codex works inside the project and asks before it goes beyond it.",
                          "Codex works inside the project; its own reviewer decides what goes "
                          "beyond it and escalates the rest.",
                          "Codex skips its approval prompts and its sandbox. Its own rules still "
                          "apply."},
      .signInAdvice =
          "Codex needs you to sign in again. Use Log in with ChatGPT in Settings; "
          "vantrell does not use an API key."};
  facts.program = {.name = "codex",
                   .candidates = {"/Applications/ChatGPT.app/Contents/Resources/codex",
                                  "/opt/homebrew/bin/codex", "/usr/local/bin/codex",
                                  "~/.local/bin/codex", "~/.npm-global/bin/codex"},
                   .pathEntries = {"/opt/homebrew/bin", "/usr/local/bin", "~/.local/bin"},
                   .missingPath = "/usr/bin:/bin:/usr/sbin:/sbin",
                   .removed = {"OPENAI_API_KEY", "CODEX_API_KEY"},
                   .customPathKey = "codexExecutablePath",
                   .installCommand = "npm install -g @openai/codex",
                   .login = {.arguments = {"login"}, .failure = "Codex login did not complete."},
                   .signIn = ProviderProgram::SignInQuestion{.arguments = {"login", "status"},
                                                             .words = {{"not logged in", false},
                                                                       {"logged in", true},
                                                                       {"authenticated", true},
                                                                       {"login", false},
                                                                       {"authentication", false}}}};
  facts.models = {.efforts = {"minimal", "low", "medium", "high", "xhigh", "max", "ultra"},
                  .canBeAsked = true};
  return facts;
}

ProviderFacts kimi() {
  ProviderFacts facts{
      .descriptor = subscription(AgentProvider::kimi, "Kimi Code", "moon.stars.fill",
                                 "Kimi Code ACP using the membership signed in on this Mac."),
      .setupHint = "Install Kimi Code, then sign in with your Kimi membership.",
      .permissionTexts = {"Kimi uses manual mode and asks before tool actions.",
                          "Kimi handles approvals and questions autonomously.",
                          "Kimi uses YOLO mode for regular tool calls; sensitive actions and plan "
                          "exits may still ask."},
      .signInAdvice =
          "Kimi needs you to sign in again. Use Log in with Kimi in Settings; vantrell "
          "removes pay-per-use API keys from the runtime.",
      .sessionsAreBoundToFolder = true};
  facts.program = {
      .name = "kimi",
      .candidates = {"~/.local/bin/kimi", "~/.npm-global/bin/kimi", "/opt/homebrew/bin/kimi",
                     "/usr/local/bin/kimi", "/usr/bin/kimi"},
      .pathEntries = {"~/.local/bin", "~/.npm-global/bin", "/opt/homebrew/bin", "/usr/local/bin",
                      "/usr/bin", "/bin"},
      .removed = {"KIMI_API_KEY", "MOONSHOT_API_KEY", "OPENAI_API_KEY", "ANTHROPIC_API_KEY"},
      .customPathKey = "kimiExecutablePath",
      .installCommand = "curl -LsSf https://code.kimi.com/install.sh | bash",
      .login = {.arguments = {"login"}, .failure = "Kimi login did not complete."}};
  return facts;
}

ProviderFacts glm() {
  ProviderFacts facts{
      .descriptor = subscription(AgentProvider::glm, "GLM Coding Plan", "cube.transparent.fill",
                                 "A guarded Z.AI Coding Plan model through OpenCode ACP."),
      .setupHint =
          "Install OpenCode, configure Z.AI Coding Plan, and choose a "
          "zai-coding-plan/GLM model in Settings.",
      .permissionTexts = {"OpenCode applies its configured allow/deny rules and sends unresolved "
                          "GLM tool actions here for approval.",
                          "OpenCode applies its own permission rules and vantrell surfaces any "
                          "action it still cannot decide.",
                          "vantrell approves OpenCode tool prompts automatically. OpenCode deny "
                          "rules still apply."},
      .signInAdvice =
          "GLM needs you to sign in again. Use Set up Z.AI Coding Plan in Settings; "
          "vantrell removes pay-per-use API keys from the runtime.",
      .sessionsAreBoundToFolder = true};
  facts.program = {.name = "opencode",
                   .candidates = {"~/.opencode/bin/opencode", "~/.local/bin/opencode",
                                  "~/.npm-global/bin/opencode", "/opt/homebrew/bin/opencode",
                                  "/usr/local/bin/opencode"},
                   .pathEntries = {"~/.opencode/bin", "~/.local/bin", "~/.npm-global/bin",
                                   "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin"},
                   .removed = {"OPENAI_API_KEY", "ANTHROPIC_API_KEY", "XAI_API_KEY", "KIMI_API_KEY",
                               "MOONSHOT_API_KEY"},
                   .customPathKey = "openCodeExecutablePath",
                   .installCommand = "curl -fsSL https://opencode.ai/install | bash",
                   .login = {.arguments = {"auth", "login", "--provider", "zai-coding-plan"},
                             .wantsTerminal = true,
                             .failure = "OpenCode login did not complete."}};
  facts.models.configured = {.key = "openCodeGLMModel",
                             .usual = "zai-coding-plan/glm-4.7",
                             .requiredPrefix = "zai-coding-plan/glm-",
                             .detail = "Configured Z.AI Coding Plan model."};
  return facts;
}

ProviderFacts claude() {
  ProviderFacts facts{
      .descriptor = subscription(AgentProvider::claude, "Claude", "circle.hexagongrid.fill",
                                 "Claude Code using the Claude account signed in on this Mac."),
      .setupHint = "Install Claude Code, then sign in with your Claude subscription.",
      .permissionTexts = {"Claude Code uses its default permission checks and sends unresolved "
                          "tool actions here for approval.",
                          "Claude Code uses its native auto permission mode and escalates actions "
                          "it cannot approve.",
                          "Claude Code uses bypassPermissions. Explicit deny rules still apply."},
      .signInAdvice =
          "Claude needs you to sign in again. Use Log in with Claude in Settings; "
          "vantrell does not use an API key."};
  facts.program = {
      .name = "claude",
      .candidates = {"~/.local/bin/claude", "~/.claude/local/claude", "~/.npm-global/bin/claude",
                     "~/node_modules/.bin/claude", "~/.yarn/bin/claude", "/opt/homebrew/bin/claude",
                     "/usr/local/bin/claude"},
      .pathEntries = {"~/.local/bin", "~/.claude/local", "~/.npm-global/bin", "/opt/homebrew/bin",
                      "/usr/local/bin", "/usr/bin", "/bin"},
      .removed = {"ANTHROPIC_API_KEY", "ANTHROPIC_AUTH_TOKEN", "ANTHROPIC_BASE_URL",
                  "CLAUDE_CODE_USE_BEDROCK", "CLAUDE_CODE_USE_VERTEX", "CLAUDE_CODE_USE_FOUNDRY",
                  "CLAUDECODE"},
      .set = {{"CLAUDE_CODE_ENTRYPOINT", "vantrell"}},
      .customPathKey = "claudeExecutablePath",
      .installCommand = "curl -fsSL https://claude.ai/install.sh | bash",
      .login = {.arguments = {"auth", "login"},
                .wantsTerminal = true,
                .failure = "Claude login did not complete."},
      .signIn = ProviderProgram::SignInQuestion{.arguments = {"auth", "status"},
                                                .words = {{"loggedin\":true", true},
                                                          {"not logged", false},
                                                          {"loggedin\":false", false},
                                                          {"logged in", true}},
                                                .signedOutStatus = 1}};
  facts.models = {.efforts = {"low", "medium", "high", "xhigh", "max"},
                  .models = {{"sonnet", "Sonnet", "Balanced Claude model.", true},
                             {"opus", "Opus", "Most capable Claude model."},
                             {"haiku", "Haiku", "Fast Claude model."}},
                  .configured = {{.key = "claudeModel", .usual = "sonnet"}}};
  return facts;
}

ProviderFacts local() {
  return {
      .descriptor = {.id = AgentProvider::local,
                     .label = "Local Models",
                     .shortLabel = std::string(shortLabel(AgentProvider::local)),
                     .systemImage = "desktopcomputer",
                     .category = Category::local,
                     .executionLocation = Location::localNetwork,
                     .billingMode = Billing::localCompute,
                     .capabilities = {.chat = true, .tools = true, .resumableSessions = true},
                     .summary = "Ollama, LM Studio, or another OpenAI-compatible runtime without "
                                "metered API billing."},
      .setupHint =
          "Start Ollama or LM Studio, load a model, and install Grok Build as the local "
          "ACP tool harness.",
      .permissionTexts = {"The local agent asks before actions that are not already allowed. Model "
                          "prompts and tool results stay on your chosen runtime.",
                          "The local agent approves routine actions and escalates actions that "
                          "still need a decision.",
                          "The local agent skips ordinary approval prompts. Workspace boundaries "
                          "and explicit deny rules still apply."},
      .failureAdvice =
          "The local runtime could not start. Confirm Ollama or LM Studio is running, "
          "the selected model is loaded, and refresh Local Models in Settings.",
      .programOf = AgentProvider::grok};
}

ProviderFacts tasklet() {
  ProviderFacts facts{
      .descriptor = {.id = AgentProvider::tasklet,
                     .label = "Tasklet",
                     .shortLabel = std::string(shortLabel(AgentProvider::tasklet)),
                     .systemImage = "cloud.fill",
                     .category = Category::cloud,
                     .executionLocation = Location::cloud,
                     .billingMode = Billing::externalPlan,
                     .capabilities = {.chat = true, .backgroundExecution = true},
                     .summary = "Dispatch work to a Tasklet workflow through its inbound webhook."},
      .setupHint = "Add an HTTPS inbound webhook for Tasklet in Settings.",
      .permissionTexts = {taskletPermission, taskletPermission, taskletPermission},
      .failureAdvice =
          "Tasklet could not accept the handoff. Verify the HTTPS inbound webhook in "
          "Settings and confirm the workflow is enabled."};
  facts.models = {
      .offersDefault = false,
      .models = {{"default", "Workflow default",
                  "Tasklet chooses the model configured by the inbound workflow.", true}}};
  return facts;
}

}  // namespace

const ProviderFacts& providerFacts(AgentProvider provider) {
  // In the order of AgentProvider.
  static const std::array<ProviderFacts, allAgentProviders.size()> table{
      grok(), codex(), kimi(), glm(), claude(), local(), tasklet()};
  return table[static_cast<std::size_t>(provider)];
}

const ProviderProgram* programOf(AgentProvider provider) {
  const ProviderFacts& facts = providerFacts(provider);
  if (facts.program) return &*facts.program;
  return facts.programOf ? programOf(*facts.programOf) : nullptr;
}

}  // namespace vantrell
