// What this program needs of its own process before anything else runs in it.
#pragma once

#include <expected>
#include <string>
#include <vector>

namespace vantrell {

/// The first call in main(). Opens the null device on those of the three standard streams that are
/// closed, so that no other file gets their numbers; makes writes to a closed pipe and over the
/// limit of a file's size fail instead of ending the program; and sees to it that enough files may
/// be open. The error is a sentence for the user.
std::expected<void, std::string> prepareOwnProcess();

/// Of SIGINT, SIGTERM and SIGHUP those that this process does not ignore: nohup lets a program
/// ignore SIGHUP, a script SIGINT for what it starts in the background.
std::vector<int> signalsOfUser();

/// Ends this process as the signal does by its default action, so that a shell sees that.
[[noreturn]] void endBySignal(int number);

}  // namespace vantrell
