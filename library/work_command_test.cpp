// vqfe work over the PostgreSQL server of VQFE_TEST_PG_URI (skipped without it), with the
// open framework.
#include "library/work_command.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "library/kinds.h"
#include "testing/pg_test_database.h"
#include "testing/temp_dir.h"
#include "vantor/cover_util.h"

namespace vqfe {
namespace {

// A JPEG cut short is analysed (the decoder fills the rest grey) with the warning every
// command gives.
TEST(WorkCommandTest, ATruncatedJpegIsAnalysedWithAWarning) {
    VQFeature::PgTestDatabase database;
    if (!database.available()) GTEST_SKIP() << VQFeature::PgTestDatabase::kSkipReason;
    VQFeature::TempDir dir;
    std::ifstream in(std::string(VQFE_SOURCE_DIR) + "/samples/astronaut.jpg", std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string cut = dir.path() + "/cut.jpg";
    std::ofstream(cut, std::ios::binary) << whole.substr(0, whole.size() * 2 / 3);

    std::ostringstream out, err;
    ASSERT_EQ(runEnqueue(database.uri(), {*parseKind("scene")}, {cut}, out, err), 0) << err.str();
    WorkOptions options;
    options.store = database.uri();
    options.modelDir = std::string(VQFE_BUILD_DIR) + "/models";
    options.frameworkConfig = std::string(VQFE_BUILD_DIR) + "/share/vqfe/framework.json";
    options.graphOf = [](const std::vector<Kind>& kinds) {
        return VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(kinds.front().templateKind));
    };
    EXPECT_EQ(runWork(options, out, err), 0) << err.str();
    EXPECT_NE(err.str().find("vqfe work: warning: " + cut + " ends early (a truncated JPEG)"), std::string::npos)
        << err.str();
    EXPECT_EQ(err.str().find("failed"), std::string::npos) << err.str();
}

// A file whose name is not UTF-8 cannot be a job (a PostgreSQL text column); it is named
// and left out, and the other photos are enqueued (one such file failed them all).
TEST(WorkCommandTest, AFileNameThatIsNotUtf8IsLeftOutAlone) {
    VQFeature::PgTestDatabase database;
    if (!database.available()) GTEST_SKIP() << VQFeature::PgTestDatabase::kSkipReason;
    VQFeature::TempDir dir;
    std::ifstream in(std::string(VQFE_SOURCE_DIR) + "/samples/coffee.jpg", std::ios::binary);
    const std::string photo((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    dir.write("coffee.jpg", photo);
    dir.write("caf\xe9.jpg", photo + "x");
    std::ostringstream out, err;
    ASSERT_EQ(runEnqueue(database.uri(), {*parseKind("scene")}, {dir.path()}, out, err), 0) << err.str();
    EXPECT_EQ(out.str(), "enqueued: 1\nalready queued: 0\n");
    EXPECT_NE(err.str().find("caf\xe9.jpg: its path is not UTF-8, which a PostgreSQL store cannot keep"),
              std::string::npos) << err.str();
}

}  // namespace
}  // namespace vqfe
