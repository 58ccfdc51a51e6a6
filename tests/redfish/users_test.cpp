// The accounts of aimctl serve: the users file's lines as Apache's htpasswd writes them (made
// by htpasswd itself here), the schemes and lines refused with their line number, password
// checks; and the access control over them on a clock of the test's: HTTP Basic credentials,
// lockout and its timing, sessions, their expiry and their limit.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "redfish/access.h"
#include "redfish/users.h"
#include "tests/redfish/htpasswd.h"

namespace {

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

// The test's clock, in seconds.
struct test_clock {
    int64_t now = 1000;
    std::function<int64_t()> fn() {
        return [this] { return now; };
    }
};

redfish::users two_users() {
    return redfish::users::parse(htpasswd("B -C 4", "admin", "adminpw") + ":Administrator\n" +
                                     htpasswd("B -C 4", "reader", "readerpw") + "\n",
                                 "users.txt");
}

std::string basic(const std::string& base64) { return "Basic " + base64; }

TEST(RedfishAccess, BasicCredentials) {
    test_clock clock;
    redfish::access_control access(two_users(), redfish::access_options(), clock.fn());
    const struct {
        const char* what;
        std::string header;
        const char* user;  // null: refused
    } cases[] = {
        {"admin:adminpw", basic("YWRtaW46YWRtaW5wdw=="), "admin"},
        {"the scheme in any case, spaces around", "  bAsIc   YWRtaW46YWRtaW5wdw==  ", "admin"},
        {"reader:readerpw (no padding)", basic("cmVhZGVyOnJlYWRlcnB3"), "reader"},
        {"wrong password", basic("cmVhZGVyOnJlYWRlcnB4"), nullptr},
        {"no colon", basic("cmVhZGVycmVhZGVycHc="), nullptr},
        {"not base64", basic("cmVhZGVy!!!!"), nullptr},
        {"a length not of four", basic("cmVhZGVyOnJlYWRlcnB3="), nullptr},
        {"empty", basic(""), nullptr},
        {"another scheme", "Bearer cmVhZGVyOnJlYWRlcnB3", nullptr},
        {"no name", basic("OnJlYWRlcnB3"), nullptr},
        {"unknown name", basic("bm9ib2R5OnJlYWRlcnB3"), nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const redfish::account* a = access.basic(c.header);
        if (c.user) {
            ASSERT_NE(nullptr, a);
            EXPECT_EQ(c.user, a->name);
        } else {
            EXPECT_EQ(nullptr, a);
        }
    }
    EXPECT_FALSE(access.locked("reader")) << "one wrong password locks no one";
}

TEST(RedfishAccess, LockoutAndItsTiming) {
    test_clock clock;
    redfish::access_control access(two_users(), redfish::access_options(), clock.fn());
    // Four wrong passwords and the right one: the count starts again.
    for (int i = 0; i < 4; ++i) EXPECT_EQ(nullptr, access.check("reader", "x"));
    EXPECT_NE(nullptr, access.check("reader", "readerpw"));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(nullptr, access.check("reader", "x"));
    EXPECT_FALSE(access.locked("reader"));

    // Wrong passwords 60 s apart never add up; 59 s apart they do.
    test_clock slow;
    redfish::access_control spaced(two_users(), redfish::access_options(), slow.fn());
    for (int i = 0; i < 10; ++i, slow.now += 60) {
        EXPECT_EQ(nullptr, spaced.check("reader", "x"));
        EXPECT_FALSE(spaced.locked("reader")) << "attempt " << i + 1;
    }
    for (int i = 0; i < 4; ++i, slow.now += 59) EXPECT_EQ(nullptr, spaced.check("reader", "x"));
    EXPECT_FALSE(spaced.locked("reader"));
    EXPECT_EQ(nullptr, spaced.check("reader", "x"));
    EXPECT_TRUE(spaced.locked("reader")) << "the fifth within 59 s of the fourth";

    // Locked: the right password is refused for 60 s, and no one else is locked.
    clock.now += 1;
    EXPECT_EQ(nullptr, access.check("reader", "x"));
    ASSERT_TRUE(access.locked("reader"));
    const int64_t locked_at = clock.now;
    EXPECT_EQ(nullptr, access.check("reader", "readerpw"));
    EXPECT_NE(nullptr, access.check("admin", "adminpw"));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(nullptr, access.check("nobody", "x"));
    EXPECT_FALSE(access.locked("nobody"));
    clock.now = locked_at + 59;
    EXPECT_EQ(nullptr, access.check("reader", "readerpw")) << "locked for 60 s";
    EXPECT_EQ(nullptr, access.check("reader", "x")) << "not counted while locked";
    clock.now = locked_at + 60;
    EXPECT_FALSE(access.locked("reader"));
    EXPECT_NE(nullptr, access.check("reader", "readerpw"));
    EXPECT_EQ(nullptr, access.check("reader", "x"));
    EXPECT_FALSE(access.locked("reader")) << "the count began again";
}

TEST(RedfishAccess, SessionsExpireAndAreLimited) {
    test_clock clock;
    redfish::access_options options;
    options.session_timeout = 100;
    options.max_sessions = 3;
    redfish::access_control access(two_users(), options, clock.fn());
    redfish::session a, b, c, d, found;
    using result = redfish::access_control::login_result;
    EXPECT_EQ(result::refused, access.login("admin", "wrong", a));
    ASSERT_EQ(result::created, access.login("admin", "adminpw", a));
    EXPECT_EQ("admin", a.user);
    EXPECT_EQ(redfish::role::administrator, a.role);
    EXPECT_EQ(64u, a.token.size());
    EXPECT_EQ(16u, a.id.size());
    clock.now += 50;
    ASSERT_EQ(result::created, access.login("reader", "readerpw", b));
    ASSERT_EQ(result::created, access.login("reader", "readerpw", c));
    EXPECT_EQ(3u, std::set<std::string>({a.token, b.token, c.token}).size());
    EXPECT_EQ(result::full, access.login("reader", "readerpw", d)) << "at most 3";

    EXPECT_FALSE(access.by_token("", found));
    EXPECT_FALSE(access.by_token(a.token.substr(1), found));
    clock.now += 49;  // 99 s after a's last use
    ASSERT_TRUE(access.by_token(a.token, found)) << "a use keeps it";
    EXPECT_EQ(a.id, found.id);
    clock.now += 51;  // b and c unused for 100 s
    EXPECT_FALSE(access.by_token(b.token, found));
    ASSERT_EQ(1u, access.sessions().size());
    EXPECT_EQ(a.id, access.sessions()[0].id);
    ASSERT_EQ(result::created, access.login("reader", "readerpw", d)) << "room again";

    EXPECT_TRUE(access.end(a.id));
    EXPECT_FALSE(access.end(a.id));
    EXPECT_FALSE(access.by_token(a.token, found));
    clock.now += 100;
    EXPECT_TRUE(access.sessions().empty());
}

}  // namespace
