// moncl with keys: made by moncl keygen, named on the command line or in the environment.
#include "child_process.h"
#include "encrypted_server.h"

namespace {
using words = std::vector<std::string>;

struct moncl : child_process {
    explicit moncl(words arguments) : child_process(with_program(std::move(arguments))) {
        status = wait();
    }
    static words with_program(words arguments) {
        arguments.insert(arguments.begin(), MONCL_PROGRAM);
        return arguments;
    }
    int status;
};

answer_packets memory_figures(int, int sub_command, const std::string&) {
    return {packet(sub_command, "MemTotal: 2048 kB\nMemAvailable: 1024 kB\n")};
}

std::string text_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}
} // namespace

TEST(encrypted_moncl, keygen_writes_a_pair_and_overwrites_none) {
    const file_tree folder;
    const std::string file = folder.root() + "/board.key";
    const moncl made({"keygen", file});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out.substr(40), " board\n") << "the line for --allow";
    const std::string pair = text_of(file);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_NE(pair.find("public = \"" + made.out.substr(0, 40) + "\"\nsecret = \""), pair.npos);
    for (const char* lost : {"", ".pub"}) { // the other one is there
        std::filesystem::rename(file + lost, folder.root() + "/away");
        EXPECT_EQ(moncl({"keygen", file}).status, 1);
        EXPECT_FALSE(std::filesystem::exists(file + lost)) << "nothing half done";
        std::filesystem::rename(folder.root() + "/away", file + lost);
    }
    EXPECT_EQ(text_of(file), pair);
}

TEST(encrypted_moncl, shows_figures_or_says_why_there_are_none) {
    const file_tree folder;
    const std::string own = folder.root() + "/own.key";
    const std::string other = folder.root() + "/other.key";
    const std::string own_public = moncl({"keygen", own}).out.substr(0, 40);
    const std::string other_public = moncl({"keygen", other}).out.substr(0, 40);
    encrypted_server encrypted(own_public);
    scripted_server plain;
    encrypted.server.answer(memory_figures);
    plain.answer(memory_figures);
    const std::string server_key = encrypted.keys.public_key;
    folder.write("/server.pub", "public = \"" + server_key + "\"\n");
    folder.write("/open.key", text_of(own));
    const std::string at = "127.0.0.1:" + std::to_string(encrypted.server.port());
    const std::string plain_at = "127.0.0.1:" + std::to_string(plain.port());
    const struct {
        const char* name;
        std::string server;
        words keys;
        std::string said; // on standard error; nothing if there are figures
    } cases[] = {
        {"keys", at, {"--key", own, "--server-key", server_key}, ""},
        {"file of the server's",
         at,
         {"--key", own, "--server-key", folder.root() + "/server.pub"},
         ""},
        {"plain", plain_at, {}, ""},
        {"no keys",
         at,
         {},
         " takes encrypted connections only: name keys with --key and --server-key"},
        {"keys, plain server",
         plain_at,
         {"--key", own, "--server-key", server_key},
         " is not encrypted: start monsrv with --curve-key there, or leave out --key and "
         "--server-key"},
        {"unknown key",
         at,
         {"--key", other, "--server-key", server_key},
         " refuses this key: add " + other_public + " (" + other +
             ".pub) to the server's --allow file"},
        {"other server key",
         at,
         {"--key", own, "--server-key", other_public},
         " breaks the handshake off: is " + other_public + " its key, and is it encrypted?"},
        {"key that others may read",
         at,
         {"--key", folder.root() + "/open.key", "--server-key", server_key},
         "open.key: others than its owner have access to it (chmod 600)"}};
    for (const auto& each : cases) {
        words line = each.keys;
        for (const char* word : {"mem", "--json", "--connect", each.server.c_str()})
            line.emplace_back(word);
        // Whether both sides see that one of them is plain, or the server only, is a matter of
        // time.
        for (int attempt = 1; attempt <= 8; ++attempt) {
            const moncl run(line);
            const bool as_expected = each.said.empty()
                                         ? run.out.find("\"total_bytes\":2097152") != run.out.npos
                                         : run.err.find(each.said + "\n") != run.err.npos;
            if (!as_expected && attempt < 8 && each.said.find("encrypted") != each.said.npos)
                continue;
            EXPECT_TRUE(as_expected) << each.name << ": " << run.out << run.err;
            EXPECT_EQ(run.status == 0, each.said.empty()) << each.name;
            break;
        }
    }
    setenv("MONCL_KEY", own.c_str(), 1);
    setenv("MONCL_SERVER_KEY", server_key.c_str(), 1);
    EXPECT_EQ(moncl({"mem", "--connect", at}).status, 0) << "keys of the environment";
    const moncl inside({"mem"});
    EXPECT_EQ(inside.status, 0) << "which are not for the server inside: " << inside.err;
    unsetenv("MONCL_SERVER_KEY");
    EXPECT_EQ(moncl({"mem", "--connect", plain_at}).status, 2) << "never in plain by mistake";
    unsetenv("MONCL_KEY");
}
