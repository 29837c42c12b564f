// What the engine asks of the desktop around it: the clipboard and a terminal window. Each front
// end brings its own implementation. Main queue; nothing here blocks.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

namespace vantrell {

class Desktop {
 public:
  /// The error is what the system said.
  using Completion = std::function<void(std::expected<void, std::string>)>;

  virtual ~Desktop() = default;
  /// Clears the clipboard and puts the text there.
  virtual void copy(const std::string& text) = 0;
  /// Opens the user's terminal in the folder; an empty one is the home folder. Completes on the
  /// main queue when the terminal was started, or could not be.
  virtual void openTerminal(const std::string& folder, Completion completion) = 0;

  /// For a session without a desktop: copies nowhere, and opening fails with a sentence.
  static std::shared_ptr<Desktop> none();
};

}  // namespace vantrell
