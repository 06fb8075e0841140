#include <axparameter.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "platform/support/owners.h"
#include "platform/workstation/parameters/parameter_batch.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "tests/platform/disk_faults.h"
#include "tests/platform/state_folder.h"

namespace {

constexpr const char* kManifest = R"({"parameters": [{"name": "Sensitivity", "default": "0.38", "type": "float"},
                                                      {"name": "Name", "default": ""}]})";
constexpr const char* kCamera = R"({"source": "x.mp4", "rotation": 90, "product_name": "AXIS P1"})";

struct StoreCloser {
  void operator()(AXParameter* store) const { ax_parameter_free(store); }
};
using Store = std::unique_ptr<AXParameter, StoreCloser>;

class ParameterStore : public testing::Test {
 protected:
  ParameterStore() {
    m_folder.write("manifest.json", kManifest);
    m_folder.write("camera.json", kCamera);
  }

  Store open() { return Store(ax_parameter_new("velmor_care", m_error.out())); }
  bool set(const Store& store, const std::string& name, const std::string& value, bool sync = true) {
    return ax_parameter_set(store.get(), name.c_str(), value.c_str(), sync ? TRUE : FALSE, m_error.out()) == TRUE;
  }
  static std::string get(const Store& store, const std::string& name) {
    gchar* value = nullptr;
    if (ax_parameter_get(store.get(), name.c_str(), &value, nullptr) == FALSE) return "(none)";
    return GLibPtr<gchar>(value).get();
  }
  /// What a run started now would find.
  std::string stored(const std::string& name) { return get(open(), name); }
  int code() const { return m_error ? m_error.get()->code : 0; }
  /// The log's lines, which go to standard error.
  template <typename Function>
  static std::string saidBy(Function function) {
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
  }

  StateFolder m_folder;
  int m_described = 0;
  CaughtError m_error;
};

TEST_F(ParameterStore, StartsFromTheManifestAndTheCameraWhateverHasBecomeOfTheFirstFile) {
  open();
  m_folder.write("parameters.conf", "");
  const Store store = open();
  EXPECT_EQ(get(store, "Sensitivity"), "0.38");
  EXPECT_EQ(get(store, "Name"), "");
  EXPECT_EQ(get(store, "root.Image.I0.Appearance.Rotation"), "90");
  EXPECT_EQ(get(store, "root.Brand.ProdShortName"), "AXIS P1");
  GList* names = ax_parameter_list(store.get(), nullptr);
  EXPECT_EQ(g_list_length(names), 2U) << "the camera's own parameters are not the application's";
  EXPECT_STREQ(static_cast<const char*>(names->data), "Name");
  g_list_free_full(names, g_free);
}

TEST_F(ParameterStore, KeepsEveryTextAsItIs) {
  for (const char* text : {"", " lead", "trail \t ", "two\nlines\r\n", "100 %s %% ; # = [x]", "back\\slash\\n\\s",
                           "Bett 窓 ü", "\"q\"", "  "}) {
    ASSERT_TRUE(set(open(), "Name", text)) << text;
    EXPECT_EQ(stored("Name"), text);
  }
  EXPECT_FALSE(set(open(), "Name", "\xff\xfe"));
  EXPECT_EQ(stored("Name"), "  ");
}

TEST_F(ParameterStore, AddsOnceAndRefusesWhatItDoesNotHold) {
  {
    const Store store = open();
    EXPECT_TRUE(ax_parameter_add(store.get(), "Extra", "0", nullptr, nullptr));
    EXPECT_FALSE(ax_parameter_add(store.get(), "Extra", "1", nullptr, m_error.out()));
    EXPECT_EQ(code(), 13);
    EXPECT_FALSE(set(store, "Unknown", "1"));
    EXPECT_EQ(code(), AX_PARAMETER_PARAM_NOT_FOUND_ERROR);
    EXPECT_FALSE(set(store, "root.Brand.ProdShortName", "Other"));
    EXPECT_EQ(code(), AX_PARAMETER_PARAM_NOT_FOUND_ERROR);
    for (const char* name : {"", "a=b", "a\nb", "[x]", " a"}) {
      EXPECT_FALSE(ax_parameter_add(store.get(), name, "0", nullptr, nullptr)) << name;
    }
    EXPECT_EQ(get(store, "Unknown"), "(none)");
  }
  EXPECT_EQ(stored("Extra"), "0");
  EXPECT_EQ(stored("root.Brand.ProdShortName"), "AXIS P1");
}

TEST_F(ParameterStore, ADescriptionCountsOnlyForWhatItSaysAnew) {
  const auto describe = [this](const std::string& parameters) {
    // A file of its own each time: a running process reads a camera once.
    const std::string file = "camera" + std::to_string(m_described++) + ".json";
    m_folder.write(file, R"({"source": "x.mp4", "parameters": {)" + parameters + "}}");
    ::setenv("VELMOR_CAMERA", (m_folder / file).c_str(), 1);
  };
  describe(R"("Sensitivity": "0.5", "Name": "bed")");
  EXPECT_EQ(stored("Sensitivity"), "0.5") << "counts before the default";
  set(open(), "Sensitivity", "0.9");
  EXPECT_EQ(stored("Sensitivity"), "0.9") << "saved later";
  describe(R"("Sensitivity": "0.5", "Name": "window")");
  EXPECT_EQ(stored("Sensitivity"), "0.9") << "the same as before";
  EXPECT_EQ(stored("Name"), "window");
  set(open(), "Name", "door");
  m_folder.write("parameters.conf", "damaged");
  saidBy([this] { EXPECT_EQ(stored("Name"), "window") << "the generation before knows what was said then"; });
  set(open(), "Name", "door");
  describe("");
  EXPECT_EQ(stored("Name"), "door") << "says nothing";
  describe(R"("Name": "window", "Sensitivity": "0.6")");
  EXPECT_EQ(stored("Name") + stored("Sensitivity"), "window0.6") << "says it again";
}

TEST_F(ParameterStore, AFileWithoutMemoryAndAnUpdatedPackageLoseNothing) {
  // As written before the description was remembered: one group of values.
  const std::string body = "[velmor_care]\nName=kept\nSensitivity=0.9\n";
  const GLibPtr<gchar> sum(g_compute_checksum_for_string(G_CHECKSUM_SHA256, body.c_str(), -1));
  m_folder.write("parameters.conf", "# sha256 of what follows: " + std::string(sum.get()) + "\n" + body);
  m_folder.write("manifest.json", R"({"parameters": [{"name": "Sensitivity", "default": "0.1"},
                                                     {"name": "Later", "default": "new"}]})");
  EXPECT_EQ(stored("Sensitivity") + stored("Name") + stored("Later"), "0.9keptnew");
}

TEST_F(ParameterStore, WritesAtOnceOnlyWhenAskedTo) {
  Store store = open();
  const std::string before = m_folder.read("parameters.conf");
  set(store, "Name", "later", false);
  EXPECT_EQ(m_folder.read("parameters.conf"), before);
  store.reset();
  EXPECT_EQ(stored("Name"), "later");
  store = open();
  set(store, "Name", "now");
  EXPECT_EQ(stored("Name"), "now");
}

TEST_F(ParameterStore, ABatchIsOneChangeOfTheFile) {
  Store store = open();
  const std::string before = m_folder.read("parameters.conf");
  {
    workstation::ParameterBatch batch;
    set(store, "Name", "bed");
    set(store, "Sensitivity", "0.7");
    EXPECT_EQ(get(store, "Name"), "bed");
    EXPECT_EQ(m_folder.read("parameters.conf"), before);
    EXPECT_TRUE(batch.finish());
    EXPECT_EQ(stored("Name") + stored("Sensitivity"), "bed0.7");
    EXPECT_EQ(m_folder.read("parameters.conf.1"), before) << "the generation before is the one before the batch";
    set(store, "Name", "door");
    EXPECT_EQ(stored("Name"), "door") << "after the end every change is written at once";
  }
  std::filesystem::create_directory(m_folder / "parameters.conf.new");
  const std::string log = saidBy([&] {
    workstation::ParameterBatch batch;
    EXPECT_TRUE(set(store, "Name", "late"));
    EXPECT_FALSE(batch.finish());
  });
  EXPECT_NE(log.find("parameters.conf.new: cannot be written"), std::string::npos) << log;
  std::filesystem::remove(m_folder / "parameters.conf.new");
  set(store, "Sensitivity", "0.8");
  EXPECT_EQ(stored("Name"), "late") << "goes with the next change";
  const workstation::ParameterBatch unfinished;
  set(store, "Name", "last");
  store.reset();
  EXPECT_EQ(stored("Name"), "last");
}

TEST_F(ParameterStore, FallsBackOneGenerationWhenTheFileIsDamaged) {
  set(open(), "Name", "older");
  set(open(), "Name", "newer");
  const std::string good = m_folder.read("parameters.conf");
  std::string flipped = good;
  flipped[flipped.find("newer")] = 'N';
  std::string said;  // in all: the same is shown once a minute
  for (const std::string& damaged :
       {flipped, good.substr(0, good.size() - 3), std::string("garbage\n"), std::string()}) {
    m_folder.write("parameters.conf", damaged);
    said += saidBy([this] { EXPECT_EQ(stored("Name"), "older"); });
    EXPECT_EQ(m_folder.read("parameters.conf.damaged"), damaged);
    EXPECT_EQ(stored("Name"), "older") << "whole again";
  }
  EXPECT_NE(said.find("its checksum is wrong; the values of the generation before are used"), std::string::npos)
      << said;
  std::filesystem::remove(m_folder / "parameters.conf");
  EXPECT_EQ(stored("Name"), "older");
}

TEST_F(ParameterStore, SaysInOneLineWhyItCannotOpen) {
  open();
  const std::string good = m_folder.read("parameters.conf");
  const std::pair<const char*, const char*> damages[] = {{"parameters.conf.1", "so is the generation before"},
                                                         {"manifest.json", "is not a manifest"}};
  for (const auto& [file, message] : damages) {
    m_folder.write("parameters.conf", "damaged");
    m_folder.write(file, "damaged");
    EXPECT_EQ(open(), nullptr);
    ASSERT_EQ(code(), AX_PARAMETER_STORE_ERROR);
    EXPECT_NE(m_error.text().find(message), std::string::npos) << m_error.text();
    EXPECT_EQ(m_error.text().find('\n'), std::string::npos);
    EXPECT_EQ(m_folder.read("parameters.conf"), "damaged") << "nothing is overwritten";
    const std::string log = saidBy([] { EXPECT_EQ(ax_parameter_new("velmor_care", nullptr), nullptr); });
    EXPECT_NE(log.find(message), std::string::npos) << "whoever takes no reason finds it in the log: " << log;
    m_folder.write("parameters.conf.1", good);
  }
  for (const char* manifest : {R"({"parameters": [{"name": "A"}]})", R"({"parameters": [{"name": "A", "default": 1}]})",
                               R"({"parameters": [{"name": "a b", "default": "1"}]})", R"({"parameters": []})"}) {
    m_folder.write("manifest.json", manifest);
    EXPECT_EQ(open(), nullptr) << manifest;
  }
}

TEST_F(ParameterStore, NeitherHangsNorSwallowsWhatIsNoFile) {
  m_folder.write("manifest.json", kManifest + std::string(1 << 20, ' '));
  EXPECT_EQ(open(), nullptr);
  EXPECT_NE(m_error.text().find("manifest.json: is larger than 1048576 bytes"), std::string::npos);
  std::filesystem::remove(m_folder / "manifest.json");
  ASSERT_EQ(::mkfifo((m_folder / "manifest.json").c_str(), 0600), 0);
  EXPECT_EQ(open(), nullptr);
  EXPECT_NE(m_error.text().find("manifest.json: is not a file"), std::string::npos);
}

TEST_F(ParameterStore, LeavesTheValueWhenItCannotBeWritten) {
  const Store store = open();
  std::filesystem::create_directory(m_folder / "parameters.conf.new");
  EXPECT_FALSE(set(store, "Name", "lost"));
  EXPECT_EQ(code(), AX_PARAMETER_STORE_ERROR);
  EXPECT_EQ(get(store, "Name"), "");
  std::filesystem::remove(m_folder / "parameters.conf.new");
  for (const Fault fault : {Fault::kSyncFails, Fault::kFolderFails}) {
    disk_fault = fault;
    EXPECT_FALSE(set(store, "Sensitivity", "1")) << "it might not survive a power cut";
    disk_fault = Fault::kNone;
  }
  EXPECT_FALSE(set(store, "Name", std::string(1 << 20, 'x'))) << "more than the next start would read";
  EXPECT_EQ(stored("Name"), "");
  EXPECT_FALSE(ax_parameter_set(nullptr, "Name", "x", TRUE, nullptr)) << "a store that could not be opened";
}

}  // namespace
