// velmor_accuracy: what the program finds in pictures and recordings whose truth is known, measured with its own code.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "accuracy/commands.h"

namespace {

constexpr const char* kUsage =
    "velmor_accuracy pictures FOLDER [--turned 90|180|270] [--light FACTOR] [--json FILE]\n"
    "  the people of labelled pictures: FOLDER holds truth.json and the JPEG files that it names\n"
    "    --turned  the pictures turned clockwise; by a quarter they are shrunk to fit, with grey at the sides\n"
    "    --light   every byte of the picture times FACTOR (0 to 1)\n"
    "    --json    each picture's skeletons, whom they find and whom they miss\n"
    "velmor_accuracy recordings [--settings FILE] [--still-from-end SECONDS] FILE...\n"
    "  recordings through the whole program, beside NAME.truth.jsonl of each where there is one\n"
    "    --settings        the camera's settings, instead of NAME.settings.json\n"
    "    --still-from-end  so long before the end somebody has fallen and lies still\n"
    "velmor_accuracy ranges FILE...\n"
    "  what the networks' tensors hold on recordings, as models/ranges.json wants it\n"
    "velmor_accuracy privacy SOURCE_TREE ROTATION(0|90) MIRRORED(0|1)\n"
    "  the true faces of the demo that the anonymised stream shows, for a camera mounted so\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The words of a command line, taken one by one.
class Words {
 public:
  explicit Words(std::vector<std::string> words) : m_words(std::move(words)) {}

  [[nodiscard]] bool areLeft() const { return m_next < m_words.size(); }
  std::string next(const std::string& what) {
    if (!areLeft()) throw UsageError(what + " is missing");
    return m_words[m_next++];
  }

 private:
  std::vector<std::string> m_words;
  std::size_t m_next = 0;
};

double numberFrom(const std::string& word, const std::string& what, double low, double high) {
  char* end = nullptr;
  const double number = std::strtod(word.c_str(), &end);
  if (word.empty() || *end != '\0' || !(number >= low && number <= high)) {
    throw UsageError(what + " must be a number from " + std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

int turnFrom(const std::string& word) {
  if (word != "0" && word != "90" && word != "180" && word != "270") throw UsageError("--turned takes 90, 180 or 270");
  return std::stoi(word);
}

void pictures(Words words) {
  PicturesRequest request;
  request.folder = words.next("FOLDER");
  while (words.areLeft()) {
    const std::string option = words.next("");
    const std::string value = words.next("the value of " + option);
    if (option == "--turned") {
      request.viewing.turn = turnFrom(value);
    } else if (option == "--light") {
      request.viewing.light = numberFrom(value, option, 0, 1);
    } else if (option == "--json") {
      request.json = value;
    } else {
      throw UsageError(option + " is no option of pictures");
    }
  }
  measurePictures(request);
}

void recordings(Words words) {
  RecordingsRequest request;
  while (words.areLeft()) {
    const std::string word = words.next("");
    if (word == "--settings") {
      request.settings = words.next(word);
    } else if (word == "--still-from-end") {
      request.still_from_end_s = numberFrom(words.next(word), word, 0, 86400);
    } else if (word.starts_with("--")) {
      throw UsageError(word + " is no option of recordings");
    } else {
      request.files.emplace_back(word);
    }
  }
  if (request.files.empty()) throw UsageError("FILE is missing");
  measureRecordings(request);
}

void ranges(Words words) {
  std::vector<std::filesystem::path> files;
  do {
    files.emplace_back(words.next("FILE"));
  } while (words.areLeft());
  measureRanges(files);
}

void privacy(Words words) {
  PrivacyRequest request;
  request.tree = words.next("SOURCE_TREE");
  const std::string rotation = words.next("ROTATION");
  const std::string mirrored = words.next("MIRRORED");
  if (rotation != "0" && rotation != "90") throw UsageError("ROTATION is 0 or 90");
  if (mirrored != "0" && mirrored != "1") throw UsageError("MIRRORED is 0 or 1");
  if (words.areLeft()) throw UsageError(words.next("") + ": privacy takes three words");
  request.rotation = std::stoi(rotation);
  request.mirrored = mirrored == "1";
  measurePrivacy(request);
}

void obey(Words words) {
  const std::string command = words.next("the command");
  if (command == "pictures") return pictures(words);
  if (command == "recordings") return recordings(words);
  if (command == "ranges") return ranges(words);
  if (command == "privacy") return privacy(words);
  throw UsageError(command + " is no command");
}

int run(const std::vector<std::string>& words) {
  if (std::find(words.begin(), words.end(), "--help") != words.end()) {
    std::cout << kUsage;
    return 0;
  }
  try {
    obey(Words(words));
    return 0;
  } catch (const UsageError& error) {
    std::cerr << "velmor_accuracy: " << error.what() << "\n" << kUsage;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "velmor_accuracy: " << error.what() << '\n';
    return 1;
  }
}

}  // namespace

/// What the program has set up is not taken down: the end of a measuring is none of the program's.
int main(int argc, char** argv) {
  const int status = run({argv + 1, argv + argc});
  std::fflush(nullptr);
  std::_Exit(status);
}
