#include "ProgramRunner.h"
#include "TestFiles.h"

#include <httplib.h>
#define PICOJSON_USE_INT64
#include <picojson.h>

#include <csignal>
#include <sstream>

// The point server as its users run it, and the other commands as its clients.

namespace {
class Serve : public testing::Test {
protected:
    // Makes a point file below the folder that is served.
    void build(const std::string& input, const std::string& name, const std::vector<std::string>& options = {}) {
        std::filesystem::create_directories(std::filesystem::path(folder.file(name)).parent_path());
        std::vector<std::string> arguments{"build", input, "-o", folder.file(name)};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ASSERT_EQ(0, runNimbrel(arguments).status);
    }
    void buildSample(const std::string& name) {
        const std::string sample = folder.file("sample.ply");
        ASSERT_EQ(0, runNimbrel({"sample", sample, "--points", "300000", "--force"}).status);
        build(sample, name);
    }
    // Begins to serve; fills `url`.
    void start(std::vector<std::string> paths) {
        paths.insert(paths.begin(), "serve");
        paths.insert(paths.end(), {"--port", "0", "--threads", "20"});
        server = std::make_unique<RunningNimbrel>(paths);
        const std::string line = server->readLine();
        ASSERT_NE(std::string::npos, line.find("http://")) << line;
        url = line.substr(line.find("http://"));
        url.pop_back(); // the slash
    }

    const TemporaryFolder folder;
    std::unique_ptr<RunningNimbrel> server;
    std::string url;
};
} // namespace

static PointBatch pointsOf(const std::string& cloud, const TemporaryFolder& folder) {
    const std::string path = folder.file("back.ply");
    const RunResult result = runNimbrel({"points", cloud, "-o", path, "--force"});
    EXPECT_EQ(0, result.status) << result.err;
    return result.status == 0 ? readAll(*openPoints(path, {}), 100000) : PointBatch();
}

// The share of colour values that differ between two pictures of the engine's own capture, which is text.
static double differenceOf(const std::string& one, const std::string& other) {
    std::istringstream first(bytesOf(one)), second(bytesOf(other));
    size_t values = 0, different = 0;
    for (std::string a, b; first >> a && second >> b; ++values) different += a != b ? 1 : 0;
    EXPECT_GT(values, 1000U);
    std::string rest;
    EXPECT_FALSE(first >> rest || second >> rest);
    return static_cast<double>(different) / static_cast<double>(values);
}

TEST_F(Serve, GivesTheCloudsAsTheyAreInTheirFiles) {
    buildSample("clouds/town a.opc");
    for (const char* name : {"bunny.ply", "autzen_trim.laz", "forest_bc_1.laz"}) {
        const std::string input = realCloud(name);
        if (input.empty()) continue;
        build(input, std::string("clouds/") + name + ".17");
        build(input, std::string("clouds/deeper/") + name + ".18", {"--compressed"});
    }
    start({folder.file("clouds")});
    httplib::Client client(url);
    const auto list = client.Get("/");
    ASSERT_TRUE(list);
    EXPECT_EQ("*", list->get_header_value("Access-Control-Allow-Origin"));
    picojson::value files;
    ASSERT_EQ("", picojson::parse(files, list->body));
    ASSERT_GE(files.get<picojson::array>().size(), 1U);
    for (const picojson::value& file : files.get<picojson::array>()) {
        const std::string name = file.get("path").get<std::string>();
        const std::string local = folder.file("clouds") + (name == "/town%20a.opc" ? "/town a.opc" : name);
        const PointBatch expected = pointsOf(local, folder);
        const PointBatch actual = pointsOf(url + name, folder);
        EXPECT_EQ(file.get("points").get<int64_t>(), static_cast<int64_t>(expected.size())) << name;
        EXPECT_TRUE(expected.attributes == actual.attributes) << name;
        ASSERT_EQ(expected.positions.size(), actual.positions.size()) << name;
        double farthest = 0;
        for (size_t i = 0; i < actual.positions.size(); ++i) {
            farthest = std::max(farthest, std::abs(expected.positions[i] - actual.positions[i]));
        }
        EXPECT_LE(farthest, 1e-4) << name; // the step of a 32-bit float at the size of a root node
        for (const auto& [cloud, picture] : {std::pair(local, "local.ppm"), std::pair(url + name, "remote.ppm")}) {
            const RunResult drawn = runNimbrel({"render", cloud, "-fo", folder.file(picture), "--size", "320x200"});
            EXPECT_EQ(0, drawn.status) << drawn.err;
        }
        EXPECT_LE(differenceOf(folder.file("local.ppm"), folder.file("remote.ppm")), 0.001) << name;
    }
    const RunResult info = runNimbrel({"info", url + "/town a.opc", "--json"});
    EXPECT_NE(std::string::npos, info.out.find("\"points\": 300000")) << info.out << info.err;
    EXPECT_NE(std::string::npos, runNimbrel({"info", url + "/"}).err.find("none of the point files"));
    const RunResult missing = runNimbrel({"info", url + "/none.opc"});
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find("/none.opc: the server answered with status 404")) << missing.err;
    EXPECT_EQ(0, server->end(SIGINT)); // with a connection of ours still open
    EXPECT_NE(std::string::npos, runNimbrel({"info", url + "/x.opc"}).err.find("no connection can be made"));
}

TEST_F(Serve, LetsNoNameOutOfItsPaths) {
    namespace fs = std::filesystem;
    buildSample("secret.opc");
    fs::create_directories(folder.file("served/sub"));
    fs::copy_file(folder.file("secret.opc"), folder.file("served/sub/town.opc"));
    fs::copy_file(folder.file("secret.opc"), folder.file("served/.hidden.opc"));
    fs::create_symlink("../secret.opc", folder.file("served/link.opc"));
    fs::create_directory_symlink("..", folder.file("served/up"));
    fs::create_directory_symlink("/", folder.file("served/root"));
    fs::create_symlink("sub/town.opc", folder.file("served/inside.opc"));
    static_cast<void>(folder.write("served/notes.txt", std::string(1000, 'x')));
    start({folder.file("served")});
    httplib::Client client(url);
    client.set_keep_alive(true);
    client.set_url_encode(false); // names go out as they stand here
    for (const char* name : {"/sub/town.opc", "/inside.opc", "/sub%2Ftown.opc"}) {
        const auto answer = client.Get(std::string(name) + "?info");
        ASSERT_TRUE(answer) << name;
        EXPECT_EQ(200, answer->status) << name;
    }
    const std::string secret = folder.file("secret.opc");
    std::vector<std::string> outside{secret, "/" + secret, "/root" + secret, "/" + std::string(7000, 'a')};
    std::istringstream names("/link.opc /up/secret.opc /up/served/sub/town.opc /../secret.opc /sub/../../secret.opc "
                             "/sub/../sub/town.opc /%2e%2e/secret.opc /..%2fsecret.opc /%252e%252e/secret.opc "
                             "/..\\secret.opc /sub/town.opc%00 /sub/town.opc%00.txt //sub/town.opc /sub/./town.opc "
                             "/sub /notes.txt /.hidden.opc /% /%zz /\xFF\xFE");
    for (std::string name; names >> name;) outside.push_back(name);
    for (const std::string& name : outside) {
        const auto answer = client.Get(name + "?info");
        ASSERT_TRUE(answer) << name;
        EXPECT_EQ(404, answer->status) << name;
    }
    for (const auto& [query, status] :
         {std::pair("", 400), std::pair("?", 400), std::pair("?node=", 400), std::pair("?node=-1", 400),
          std::pair("?node=0x0", 400), std::pair("?node=99999999999999999999", 400),
          std::pair("?node=18446744073709551615", 404), std::pair("?node=0", 200)}) {
        const auto answer = client.Get(std::string("/sub/town.opc") + query);
        ASSERT_TRUE(answer) << query;
        EXPECT_EQ(status, answer->status) << query;
    }
    fs::resize_file(folder.file("served/sub/town.opc"), 20000); // cut short underneath
    size_t failed = 0;
    for (int node = 0; node < 8; ++node) {
        const auto answer = client.Get("/sub/town.opc?node=" + std::to_string(node));
        ASSERT_TRUE(answer);
        failed += answer->status == 404 ? 1 : 0;
    }
    EXPECT_GT(failed, 0U);
    EXPECT_EQ(1, runNimbrel({"serve", folder.file("nothing")}).status);
    const std::string port = url.substr(url.rfind(':') + 1);
    EXPECT_EQ(1, runNimbrel({"serve", folder.file("served"), "--port", port}).status) << "the port is taken";
    EXPECT_EQ(0, server->end(SIGTERM));
}
