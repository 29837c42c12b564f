#include "runtimes/tasklet/tasklet_webhook.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

/// A secret store that keeps the one secret and answers at once.
struct Store {
  std::optional<std::string> value;
  std::string failure;  // of every operation while it is not empty
  int writes = 0;

  TaskletSecret secret() {
    const auto change = [this](std::optional<std::string> to) -> TaskletSecret::Done {
      if (!failure.empty()) return std::unexpected(failure);
      ++writes;
      value = std::move(to);
      return {};
    };
    return {
        .read =
            [this](auto answer) {
              answer(failure.empty() ? TaskletSecret::Value(value)
                                     : TaskletSecret::Value(std::unexpected(failure)));
            },
        .write = [change](std::string to, auto answer) { answer(change(std::move(to))); },
        .remove = [change](auto answer) { answer(change(std::nullopt)); },
    };
  }
};

std::optional<std::string> urlOf(const TaskletWebhook& webhook) {
  return webhook.url() ? std::optional(webhook.url()->text()) : std::nullopt;
}

bool saved(TaskletWebhook& webhook, std::string_view text) {
  std::optional<bool> result;
  webhook.save(text, [&](bool isSaved) { result = isSaved; });
  return result.value();
}

TEST(TaskletWebhook, TakesHttpsAlone) {
  const std::pair<std::string, std::string> cases[]{
      {"https://tasklet.example/hook?k=v", "https://tasklet.example/hook?k=v"},
      {" \n\thttps://h/x \n", "https://h/x"},
      {"HTTPS://h/x", "HTTPS://h/x"},
      {"http://h/x", ""},
      {"http://localhost/x", ""},
      {"https://", ""},
      {"https:///x", ""},
      {"h/x", ""},
      {"", ""},
  };
  for (const auto& [text, expected] : cases) {
    const auto url = TaskletConfiguration::validatedWebhookURL(text);
    EXPECT_EQ(url ? url->text() : "", expected) << text;
  }
}

TEST(TaskletWebhook, IsReadFromTheSecretStore) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[]{
      {"https://h/x", "https://h/x"},   {std::nullopt, std::nullopt}, {"http://h/x", std::nullopt},
      {"https://h/\xFF", std::nullopt}, {"", std::nullopt},
  };
  for (const auto& [stored, expected] : cases) {
    Store store{.value = stored};
    const auto webhook = TaskletWebhook::make(store.secret());
    EXPECT_FALSE(webhook->isConfigured());
    bool isLoaded = false;
    webhook->load([&] { isLoaded = true; });
    EXPECT_TRUE(isLoaded);
    EXPECT_EQ(urlOf(*webhook), expected);
    EXPECT_EQ(webhook->isConfigured(), expected.has_value());
  }
  Store locked{.value = "https://h/x", .failure = "The keyring is locked."};
  const auto webhook = TaskletWebhook::make(locked.secret());
  webhook->load([] {});
  EXPECT_FALSE(webhook->isConfigured());
  EXPECT_EQ(webhook->problem(), "The keyring is locked.");
}

TEST(TaskletWebhook, IsStoredTrimmedAndForgottenByEmptyText) {
  Store store;
  const auto webhook = TaskletWebhook::make(store.secret());
  EXPECT_TRUE(saved(*webhook, " https://h/x\n"));
  EXPECT_EQ(store.value, "https://h/x");
  EXPECT_EQ(urlOf(*webhook), "https://h/x");

  EXPECT_TRUE(saved(*webhook, "http://h/x"));
  EXPECT_EQ(store.value, "http://h/x") << "what the user typed is kept";
  EXPECT_FALSE(webhook->isConfigured());

  EXPECT_TRUE(saved(*webhook, "https://h/y"));
  EXPECT_TRUE(saved(*webhook, " \n"));
  EXPECT_EQ(store.value, std::nullopt);
  EXPECT_FALSE(webhook->isConfigured());
  EXPECT_TRUE(saved(*webhook, ""));
}

TEST(TaskletWebhook, StaysAsItWasWhenItCannotBeStored) {
  Store store;
  const auto webhook = TaskletWebhook::make(store.secret());
  ASSERT_TRUE(saved(*webhook, "https://h/x"));
  store.failure = "The disk is full.";
  EXPECT_FALSE(saved(*webhook, "https://h/y"));
  EXPECT_FALSE(saved(*webhook, ""));
  EXPECT_EQ(urlOf(*webhook), "https://h/x");
  EXPECT_EQ(store.value, "https://h/x");
  EXPECT_EQ(webhook->problem(), "The disk is full.");
  store.failure.clear();
  EXPECT_TRUE(saved(*webhook, "https://h/z"));
  EXPECT_EQ(webhook->problem(), "");
}

}  // namespace
}  // namespace vantrell
