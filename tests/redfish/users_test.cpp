// The users file of aimctl serve: lines as Apache's htpasswd writes them (made by htpasswd
// itself here), the schemes and lines refused with their line number, and password checks.
#include <stdio.h>

#include <gtest/gtest.h>

#include <string>

#include "redfish/users.h"

namespace {

// "NAME:HASH" as `htpasswd -nb FLAGS NAME PASSWORD` prints it.
std::string htpasswd(const std::string& flags, const std::string& name, const std::string& password) {
    std::string cmd = "htpasswd -nb" + flags + " '" + name + "' '" + password + "' 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return std::string();
    std::string out;
    char buf[256];
    while (size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
    pclose(p);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

// The message of the users_error that parsing `text` throws, or "" when it parses.
std::string refusal(const std::string& text) {
    try {
        redfish::users::parse(text, "users.txt");
    } catch (const redfish::users_error& e) {
        return e.what();
    }
    return std::string();
}

TEST(RedfishUsers, HashesOfEachAcceptedSchemeCheckTheirPassword) {
    const struct {
        const char* what;
        const char* flags;
    } schemes[] = {{"bcrypt", "B -C 4"}, {"SHA-256 crypt", "2"}, {"SHA-512 crypt", "5"}};
    for (const auto& s : schemes) {
        SCOPED_TRACE(s.what);
        std::string line = htpasswd(s.flags, "admin", "s3cret pass");
        ASSERT_FALSE(line.empty()) << "htpasswd (apache2-utils) is needed";
        redfish::users u = redfish::users::parse(
            line + ":Administrator\r\n\nreader:" + htpasswd(s.flags, "x", "other").substr(2) + "\n",
            "users.txt");
        ASSERT_EQ(2u, u.accounts().size());
        const redfish::account* a = u.check("admin", "s3cret pass");
        ASSERT_NE(nullptr, a);
        EXPECT_EQ("admin", a->name);
        EXPECT_STREQ("Administrator", redfish::role_name(a->role));
        EXPECT_EQ(nullptr, u.check("admin", "s3cret pas"));
        EXPECT_EQ(nullptr, u.check("admin", "s3cret pass "));
        EXPECT_EQ(nullptr, u.check("admin", ""));
        EXPECT_EQ(nullptr, u.check("nobody", "s3cret pass")) << "an unknown name never checks";
        ASSERT_NE(nullptr, u.check("reader", "other"));
        EXPECT_STREQ("ReadOnly", redfish::role_name(u.check("reader", "other")->role)) << "the default role";
    }
}

TEST(RedfishUsers, RefusedLinesNameTheirLine) {
    const std::string good = htpasswd("B -C 4", "ok", "pw");
    ASSERT_FALSE(good.empty()) << "htpasswd (apache2-utils) is needed";
    const struct {
        const char* what;
        std::string text;
        const char* message;  // the whole message, or its start
    } cases[] = {
        {"no account", "\n  \n", "users.txt: no account"},
        {"MD5", good + "\n" + htpasswd("m", "md5", "pw"), "users.txt:2: user 'md5': Apache MD5 hashes"},
        {"SHA-1", htpasswd("s", "sha", "pw"), "users.txt:1: user 'sha': SHA-1 hashes"},
        {"DES crypt", htpasswd("d", "des", "pw"), "users.txt:1: user 'des': plain-text or DES crypt"},
        {"plain text", "plain:pw", "users.txt:1: user 'plain': plain-text or DES crypt"},
        {"unknown scheme", "x:$1$abc$def", "users.txt:1: user 'x': unknown hash scheme"},
        {"malformed bcrypt", "x:$2y$05$short", "users.txt:1: user 'x': a malformed hash"},
        {"no colon", good + "\n\njust-a-name", "users.txt:3: not NAME:HASH[:ROLE]"},
        {"empty name", ":" + good.substr(3), "users.txt:1: an empty user name"},
        {"unknown role", good + ":Root", "users.txt:1: unknown role 'Root'"},
        {"empty role", good + ":", "users.txt:1: unknown role ''"},
        {"a name twice", good + "\n" + good, "users.txt:2: user 'ok' given twice"},
        {"a zero byte", good + std::string(1, '\0') + "x", "users.txt:1: a line holds a zero byte"},
        {"bcrypt cost 18", "x:$2y$18$" + good.substr(10), "users.txt:1: user 'x': a bcrypt cost above 17"},
        {"SHA rounds", "x:$5$rounds=1000001$salt$" + std::string(43, 'a'),
         "users.txt:1: user 'x': more than 1000000 SHA crypt rounds"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::string got = refusal(c.text);
        EXPECT_EQ(0u, got.find(c.message)) << got;
    }
    EXPECT_EQ("", refusal(good + ":Operator\n")) << "a good line for comparison";
    EXPECT_EQ("", refusal(htpasswd("5 -r 1000000", "many", "pw"))) << "a million rounds are allowed";
}

TEST(RedfishUsers, AnUnreadableFileIsAnError) {
    try {
        redfish::users::load("/nonexistent/users.txt");
        FAIL() << "no error";
    } catch (const redfish::users_error& e) {
        EXPECT_STREQ("/nonexistent/users.txt: cannot read the users file", e.what());
    }
}

}  // namespace
