// velkz as a shell runs it: files, streams, signals, a terminal.
#include "program.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

struct Case {
    const char *name, *script;
    std::string output = {}; // of both streams
    int status = 0;
};

// Which block a file has, how large it is, is known; that of a pipe may be smaller than others.
std::string damage(const std::string &name) {
    return "velkz: " + name + ": block 2 at offset 32301 is damaged or cut short, " +
           (name == "standard input" ? "up to 131584" : "131072") +
           " bytes from 131072 on are lost; 'velkinfo salvage' may restore the others\n";
}

std::string too_low(const std::string &name, const std::string &least) {
    return "velkz: " + name + ": the memory limit is too low for blocks of this size; " + least +
           " would do\n";
}

// Each script runs in a folder with `text` and `code`; with the extension .ref what VELK
// makes of them, in four blocks; and bad.velk, text.ref with its second block damaged.
class Velkz : public testing::Test, protected ScratchFolder {
protected:
    void SetUp() override {
        fs::create_directory(bin);
        fs::create_directory(files);
        for (const std::string program : {"velkz", "unvelkz", "velkcat"}) {
            const std::string name = bin + "/" + program;
            write_file(name, to_bytes("#!/bin/sh\nexec " + emulator() + " '" +
                                      given_or("VELKZ_FOLDER", VELKZ_FOLDER) + "/" + program +
                                      "' \"$@\"\n"));
            fs::permissions(name, fs::perms::owner_all);
        }
        write_file(files + "/text", prose(400001, 70, "\n", 1));
        write_file(files + "/code", code(400001, 2));
        for (const std::string name : {"/text", "/code"})
            run_velk({"e", files + name, files + name + ".ref", "-b128"});
        Bytes damaged = read_file(files + "/text.ref");
        damaged[damaged.size() * 5 / 8] ^= 1;
        write_file(files + "/bad.velk", damaged);
    }
    // The script in a folder of its own, where velkz is found.
    std::string prepare(const char *script) const {
        const std::string here = path("here");
        fs::remove_all(here);
        fs::copy(files, here);
        return "cd '" + here + "'; PATH='" + bin + "':'" + VELKZ_FOLDER + "':$PATH\n" + script;
    }
    void expect(const std::vector<Case> &cases) const {
        const std::string left_out = given_or("VELKZ_LEFT_OUT", "");
        for (const Case &c : cases) {
            if (left_out.find(":" + std::string(c.name) + ":") != std::string::npos) continue;
            const Finished run = run_shell("exec 2>&1; " + prepare(c.script));
            EXPECT_EQ(run.out, c.output) << c.name;
            EXPECT_EQ(run.status, c.status) << c.name;
        }
    }
    // All that a terminal shows where these keys are pressed.
    std::string on_terminal(const char *text, const std::string &keys = "") const {
        const std::string script = prepare(text);
        int terminal;
        const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            _exit(127);
        }
        EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
        std::string shown;
        char part[4096];
        for (ssize_t got; (got = read(terminal, part, sizeof part)) > 0;)
            shown.append(part, static_cast<std::size_t>(got));
        close(terminal);
        waitpid(child, nullptr, 0);
        return shown;
    }

private:
    const std::string bin = path("bin"), files = path("files");
};

TEST_F(Velkz, WritesWhatVelkWritesAndReadsIt) {
    expect({
        {"file",
         "velkz --plain -b128K text; cmp text.velk text.ref; cp text a; unvelkz -f text.velk\n"
         "cmp text a"},
        {"size told", "cat code | velkz --plain --size 400001 -b 131072 | cmp - code.ref"},
        {"standard input from where it stands", R"sh(tail -c +10 text >a
            { dd bs=9 count=1 of=b status=none; velkz; } <text | velkcat | cmp - a)sh"},
        {"made up as it is read", "velkz -c /proc/version | velkcat | cmp - /proc/version"},
        {"tar", "tar -I velkz -cf a.tar text; tar -I velkz -xOf a.tar text | cmp - text"},
        {"several", "velkz text code; cat text code >a; velkcat text.velk code.velk | cmp - a"},
        {"ranges", R"sh(for r in 0:5 131000:200000 131071:1 9:0 1K:200K; do
            dd if=code of=a iflag=skip_bytes,count_bytes skip=${r%:*} count=${r#*:} status=none
            velkcat --range $r code.ref | cmp - a || echo $r
        done; velkcat --range 400001: text.ref; velkcat --range 399999: code.ref | wc -c)sh",
         "2\n"},
        {"list", R"sh(velkz -l - text.ref <code.ref | awk '{ print $2, $4, $5, $6 }'
            velkz --list text.ref | awk 'NR == 2 { print $1 }' | grep -qx $(wc -c <text.ref)
            cat text.ref code.ref | velkz -lv | awk 'NR == 2 { print $1, $2, $4, $5, $6 }' >c
            cat text.ref code.ref | velkz -dc | gzip -c | tail -c 8 | od -An -tx4 |
                awk -v s=$(cat text.ref code.ref | wc -c) '{ print s, 800002, 8, 131072, $1 }' | cmp - c
            cat code text.ref >a; { dd bs=400001 count=1 of=b status=none; velkz -l; } <a |
                grep -q " $(wc -c <text.ref) ")sh",
         "original blocks block size\n400001 4 131072 standard\n400001 4 131072 text.ref\n"
         "800002 8 2 archives\n"},
        {"members in a row", R"sh(velkz -c text code >a; velkz -b 128K -c text >>a; cat text.ref >>a
            cat text code text text >b; velkcat a | cmp - b; velkcat -T1 <a | cmp - b
            velkcat --range 400000:400003 a >c; tail -c +400001 b | head -c 400003 | cmp - c
            velkz -lv a | awk 'NR == 2 { print $2, $4, $6 }'
            velkz -c code >b; velkz -lv b | awk 'NR == 2 { print $6 }' >c
            gzip -c code | tail -c 8 | od -An -tx4 | awk '{ print $1 }' | cmp - c)sh",
         "1600004 10 plain\n"},
        {"levels", R"sh(cat code text code >mix
            same() { velkz -c $1 mix >a; velkz -c $2 mix | cmp - a || echo $*; }
            same -1 -b128K; same -3 -b512K; same -4 -b1M; same '' -5; same -8 '-9 -8'
            same --fast '-9 -1'; same --best -9; same '-b 128K -7' -1; same '-9 -b 128K' -1
            velkz --plain -9 -c mix >a; velkz --plain -b 16383K -c mix | cmp - a
            velkz -9 -c mix | velkcat | cmp - mix)sh"},
        {"processors", "VELK_CPU=baseline velkz -V | grep -o 'code for .*'", "code for baseline\n"},
        {"memory limit", "velkz -b128K -T9 -M3M text -c | velkcat -T9 -M1M | cmp - text"},
        {"environment",
         R"sh(VELKZ_OPT=' -T2  -M1M' velkz text; VELKZ_OPT=-M1M velkz -M9M -b128K -c text |
            velkcat | cmp - text; VELKZ_OPT=-9 velkz -c text | wc -c)sh",
         too_low("text", "6M") +
             "velkz: VELKZ_OPT: holds -T and -M with their numbers, nothing else\n"
             "Try 'velkz --help'.\n0\n"},
        {"folders",
         R"sh(mkdir -p d/e; cp text d/e/a; cp text d/B.VELK; ln -s ../text d/c; ln -s . d/d
            velkz -qr d; find d -type f | sort; rm d/e/a; velkz -d d/e/*; cmp d/e/a text
            velkz -tr d; velkz -d d; velkz -r -o x d)sh",
         "d/B.VELK\nd/e/a\nd/e/a.velk\nvelkz: d/B.VELK: is not a VELK archive\n"
         "velkz: d: is a folder, skipped\nvelkz: --output: does not go with -r\n"
         "Try 'velkz --help'.\n",
         1},
        {"suffixes", R"sh(velkz -c text >a.TVELK; velkz -d a.TVELK; cmp a.tar text
            velkz -c text >b.Velk; velkz -d b.Velk; cmp b text)sh"},
        {"what is no archive", R"sh(for n in 0 3 17 18 400001; do
                { printf v; sleep .01; head -c $n text; } >b; velkcat -f b code.ref >a
                cat b code | cmp - a; { head -c 3 b; sleep .1; tail -c +4 b; } | velkz -dcf | cmp - b
            done; cat bad.velk | velkcat -f | wc -c)sh",
         damage("standard input") + "131072\n"},
        {"grep and less",
         R"sh(printf "it's\nno\n" >a; velkz -c a text >"b'c.velk"; velkz -c a >d.velk
            velkgrep "t's" "b'c.velk" a d.velk; velkgrep -hv -m1 -e o d.velk -e x a; velkgrep -qie NO <d.velk
            echo $?; velkgrep -lF -- t\'s d.velk text; velkgrep -c no a d.velk 2>&1; velkgrep x d.velk
            echo $?; velkgrep no no d.velk 2>&1; echo $?; velkgrep s bad.velk >b 2>&1
            echo $?; velkgrep 2>&1; velkgrep -ir no d.velk 2>&1; velkless "b'c.velk" >b; cat a text | cmp - b; velkless a | cmp - a)sh",
         "b'c.velk:it's\na:it's\nd.velk:it's\nit's\nit's\n0\nd.velk\na:1\nd.velk:1\n1\n"
         "velkz: no: No such file or directory\nd.velk:no\n2\n2\n"
         "Usage: velkgrep [OPTION of grep]... PATTERN [FILE]...\n"
         "velkgrep: -ir: folders are not searched\n"},
        {"holes",
         R"sh({ cat text; head -c 3000000 /dev/zero; printf x; head -c 200000 /dev/zero; } >a
            velkz -b128K a; velkz -d a.velk -o b; velkz -d --no-sparse a.velk -o c; cmp a b; cmp a c
            [ $(stat -c %b b) -lt $(($(stat -c %b c) - 4000)) ] || stat -c %b b c)sh"},
    });
}

TEST_F(Velkz, SaysWhatIsWrong) {
    const std::string original_ends = "velkz: text.ref: the original ends at 400001 bytes\n";
    expect({
        {"full disk", "velkz -c text >/dev/full",
         "velkz: standard output: can't be written: No space left on device\n", 1},
        {"full disk, list", "velkz -l text.ref >/dev/full",
         "velkz: standard output: can't be written: No space left on device\n", 1},
        {"closed output", "velkz -c text >&-",
         "velkz: standard output: can't be written: Bad file descriptor\n", 1},
        {"closed input", "velkz -o a <&-",
         "velkz: standard input: can't be read: Bad file descriptor\n", 1},
        {"reader gone", "{ velkcat text.ref; echo $? >&2; } | :", "141\n"},
        {"reader gone, told", "trap '' PIPE; { velkcat text.ref || echo $? >&2; } | :",
         "velkz: standard output: can't be written: Broken pipe\n1\n"},
        {"damage in a pipe", "cat bad.velk | velkz -d >a; echo $?; head -c 131072 text | cmp - a",
         damage("standard input") + "1\n"},
        {"damage in a range",
         "velkcat --range 9:200000 bad.velk >a; velkcat --range 0:131072 bad.velk | cmp -n131063 "
         "- a 9",
         damage("bad.velk")},
        {"goes on after damage",
         "velkz -t text.ref bad.velk - code.ref <text; velkz -S .ref -d nothing.ref code.ref -f",
         damage("bad.velk") + "velkz: standard input: is not a VELK archive\n"
                              "velkz: nothing.ref: No such file or directory\n",
         1},
        {"damage in the first block",
         "{ head -c 99 bad.velk; head -c 99 text; } | velkz -t 2>&1 | cut -c-48",
         "velkz: standard input: block 1 at offset 18 is d\n"},
        {"header", "head -c 17 text.ref | velkz -t",
         "velkz: standard input: the header is damaged or cut short; 'velkinfo salvage' may "
         "restore the blocks\n",
         1},
        {"header damaged", "{ head -c 17 text.ref; printf x; } | velkz -t 2>&1 | cut -c-41",
         "velkz: standard input: the header is dama\n"},
        {"cut anywhere", R"sh(velkz -b128K -c text >a; for n in 18 9000 $(($(wc -c <a) - 1)); do
            head -c $n a >b; velkz -t b; velkz -l b; cat b | velkz -dc | wc -c; done 2>&1 | cut -c-24)sh",
         "velkz: b: block 1 at off\nvelkz: b: block 1 at off\nvelkz: standard input: b\n0\n"
         "velkz: b: block 1 at off\nvelkz: b: block 1 at off\nvelkz: standard input: b\n0\n"
         "velkz: b: the index at o\nvelkz: b: the index at o\nvelkz: standard input: t\n400001\n"},
        {"plain, perhaps cut", R"sh(head -c 262144 text | velkz --plain -b128K >b.velk
            velkz -tv b.velk 2>&1 | cut -d, -f4-; velkz -lv b.velk | awk 'NR == 2 { print $6, $7 }'
            velkz -d --rm b.velk; ls b.velk; velkz -tv text.ref 2>&1 | grep -c plain)sh",
         " a plain archive, which can't tell whether its end was cut off\nplain, cut?\n"
         "velkz: b.velk: kept, as a plain archive can't tell whether its end was cut "
         "off\nb.velk\n0\n",
         1},
        {"escapes",
         R"sh(velkz "$(printf -- '--a\033')" "$(printf '\302\233\303\233')"; velkz -=; velkz -b
            velkz "$(printf '\302\233\303\233')")sh",
         "velkz: --a?: unknown option\nTry 'velkz --help'.\n"
         "velkz: -=: unknown option\nTry 'velkz --help'.\n"
         "velkz: -b: needs an argument\nTry 'velkz --help'.\n"
         "velkz: ?\xC3\x9B: No such file or directory\n",
         1},
        {"more behind a file's end",
         "{ cat text.ref; printf '\\34\\0\\0\\0\\0more'; } >a; velkz -t a",
         "velkz: a: 4 bytes that follow the archive's end are left out\n", 2},
        {"more behind the end", "{ cat text.ref; printf '\\34\\0\\0\\0\\0more'; } | velkz -t",
         "velkz: standard input: what follows the archive's end is left out\n", 2},
        {"range beyond the end",
         "velkcat --range 400000:2 text.ref | wc -c; velkcat --range 400002: text.ref",
         original_ends + "1\n" + original_ends, 2},
        {"size told wrong",
         "for n in 400000 400002; do cat text | velkz --size $n -o a; done; cat a",
         "velkz: standard input: has more than the 400000 bytes of --size\n"
         "velkz: standard input: ended early, after 400001 bytes\n"
         "cat: a: No such file or directory\n",
         1},
        {"memory limit", R"sh(velkz -M 1M text; velkz -M6M -c text >a; velkz -dcM2M <a >b
            velkcat -M3M <a | cmp - text; velkz -lM1 text.ref)sh",
         too_low("text", "6M") + too_low("standard input", "3M") + too_low("text.ref", "1M"), 1},
        {"range of a pipe", "cat code.ref | velkcat --range 9:9",
         "velkz: standard input: is no file, of which alone a range can be read\n", 1},
        {"wrong options",
         R"sh(for options in '-b127K code' '-b16M code' '-b1x code' '-M0 code' '-T-1 code' \
                '-M99999999999G code' '-Tx code' '-S/ code' '--s=1 code' '--wrong code' \
                '-b131073 code' '-o b text code' \
                '-to b text.ref' '-co b text' '-c --rm text' '-t --rm text.ref' \
                '-d --range 1:1 text.ref' '-d --range 1 -c text.ref' '--range 1:1 -c text' \
                '-d --rm --range 1:1 -o b text.ref' '--size 9 text code'; do
            velkz $options </dev/null >>log 2>>log; echo $?
        done | uniq -c | tr -d ' '; grep -c Try log; ls b code.velk)sh",
         "211\n21\nls: cannot access 'b': No such "
         "file or directory\nls: cannot access 'code.velk': No such file or directory\n",
         2},
    });
}

TEST_F(Velkz, LosesNothing) {
    expect({
        {"what is there already",
         "echo old >text.velk; velkz text; cat text.velk; velkz -f text; velkcat text.velk | cmp - "
         "text",
         "velkz: text.velk: exists; -f overwrites it\nold\n"},
        {"what comes meanwhile", R"sh({ cat text; echo mine >a; cat text; } | velkz -o a
            cat a; ls -A)sh",
         "velkz: a: exists by now; -f overwrites it\nmine\n"
         "a\nbad.velk\ncode\ncode.ref\ntext\ntext.ref\n"},
        {"a folder renamed", R"sh(mkdir d; echo old >d/b; for o in a -fb; do
                { cat text; mv d e; mkdir d; cat text; } | velkz -o d/${o#-f} $([ $o = a ] || echo -f)
                rmdir d; mv e d
            done; ls -A d; cmp d/a d/b; { cat text; rm -r d; cat text; } | velkz -o d/c)sh",
         "a\nb\nvelkz: d/c: can't get its name: No such file or directory\n", 1},
        {"full disk", "ulimit -f 4; velkz code; ls -A",
         "velkz: code.velk: can't be written: File too large\n"
         "bad.velk\ncode\ncode.ref\ntext\ntext.ref\n"},
        {"the input", R"sh(ln text a; velkz -f text -o a; velkz -f -o text <text; velkz <text >>text
            cmp text a; velkcat text.ref | cmp - text)sh",
         "velkz: a: is the input itself\nvelkz: text: is the input itself\n"
         "velkz: standard output: is the input itself\n"},
        {"the input removed",
         "cp text a; velkz --rm a; ls a; velkz -d --rm a.velk; cmp a text; ls *k",
         "ls: cannot access 'a': No such file or directory\nbad.velk\n"},
        {"the input changed at last", R"sh(cat code code code code code >a; velkz -9 -T1 --rm a &
            while kill -0 $! && ! ls -l /proc/$!/fd | grep -q '[#]\|.velkz-'; do :; done >b 2>&1; chmod 600 a; wait; ls a)sh",
         "velkz: a: has changed since it was read, kept\na\n"},
        {"the input kept",
         R"sh(mkfifo f; cat f >b & velkz --rm -o f code; wait; velkcat b | cmp - code
            velkz -d --rm bad.velk
            ls bad.velk; { cat text.ref; printf '\34\0\0\0\0more'; } >c.velk
            velkz -qd --rm c.velk; cmp c text; ls c.velk)sh",
         "velkz: code: kept, as the output is not a file of its own\n" + damage("bad.velk") +
             "bad.velk\nc.velk\n"},
        {"the input changed", R"sh(mkfifo f
            for change in 'touch a' 'printf x >>a; touch -r text a'; do
                cp -p text a; velkz -c a >f & exec 3<f; head -c 9 <&3 >b; eval "$change"
                cat <&3 >b; wait $!; echo $?
            done)sh",
         "velkz: a: was written to while it was read\n2\n"
         "velkz: a: was written to while it was read\n2\n"},
        {"kinds", R"sh(ln -s text link; mkfifo pipe; mkdir dir; velkz link pipe dir; echo $?
            velkz -f link; velkcat link.velk | cmp - text; velkz -c link | cmp - link.velk
            ln -s text.ref ref; velkz -t ref; velkz text -o dir; velkz -q pipe)sh",
         "velkz: link: is a symbolic link, skipped\nvelkz: pipe: is not a regular file, skipped\n"
         "velkz: dir: is a folder, skipped\n2\nvelkz: dir: is a folder\n",
         2},
        {"blocks before a silence", R"sh({ cat text.ref; for i in $(seq 500); do
                [ "$(wc -c <a)" = 400001 ] && break; sleep .02; done; wc -c <a >b; } |
            velkz -qdcT3 >a; cat b)sh",
         "400001\n"},
        {"a link in the output's place",
         "echo old >a; ln -s a b; velkz -fo b text; cat a; velkcat b | cmp - text", "old\n"},
        {"another name of a stream", "velkz -o /dev/stdout text >a; velkcat a | cmp - text"},
        {"suffixes", R"sh(velkz bad.velk; unvelkz code; cp text.ref .ref; unvelkz -S .ref .ref
            velkz -S _x code; unvelkz -S _x code_x -o a; cmp a code; ls *d.v* .r*)sh",
         "velkz: bad.velk: has the suffix .velk already, skipped\n"
         "velkz: code: does not end in .velk, skipped; -o names the output\n"
         "velkz: .ref: does not end in .ref, skipped; -o names the output\n.ref\nbad.velk\n"},
        {"names", R"sh(for n in "$(printf 'a\nb\033\377 c')" "$(printf %0250d 1)" -n; do
                cp text "./$n"; velkz -- "$n"; rm "./$n"; velkz -d -- "$n.velk"; cmp "./$n" text
            done; velkz -q "$(printf 'a\nb\033\377 c')")sh",
         "velkz: a?b?\xFF c.velk: exists; -f overwrites it\n", 1},
        {"mode and times", R"sh(chmod 4664 text; touch -d @981173106.789 text; umask 077
            velkz text; unvelkz text.velk -o a; velkz <text -o b; cat text | velkz -o c
            stat -c '%n %a %.3Y' text.velk a b; stat -c %a c)sh",
         "text.velk 664 981173106.789\na 664 981173106.789\nb 664 981173106.789\n600\n"},
    });
}

// A shell has its background ignore SIGINT, and tells of killed processes.
TEST_F(Velkz, SignalsLeaveNothingHalf) {
    const std::string untouched = "old\na\nbad.velk\ncode\ncode.ref\nin\ntext\ntext.ref\n";
    expect({
        {"while it waits", R"sh(mkfifo in; echo old >a
            for s in HUP INT PIPE TERM USR1 ALRM 29; do
                env --default-signal velkz -fo a <in &
                exec 3>in; cat code >&3; kill -$s $!; wait $!; echo $?
            done 2>../messages; cat a; ls -A)sh",
         "129\n130\n141\n143\n138\n142\n157\n" + untouched},
        {"where a file must have a name", R"sh(mkfifo in; echo old >a
            unshare -rm mount -t tmpfs none /proc 2>b || { printf '1\n130\n'; cat a; rm b; ls -A; exit; }; rm b
            unshare -rm sh -c 'mount -t tmpfs none /proc; exec env --default-signal velkz -fo a' <in 2>../messages &
            exec 3>in; cat code >&3; ls .velkz-* | wc -l; kill -INT $!; wait $!; echo $?
            cat a; ls -A)sh",
         "1\n130\n" + untouched},
        {"at any time", R"sh(cp code saved
            for t in .003 .01 .03 .06 .1 .15; do for s in HUP INT TERM KILL; do
                cp text.ref a; env --default-signal velkz --plain -b128K -fo a code &
                sleep $t; kill -$s $!; wait $!
                cmp -s a text.ref || cmp -s a code.ref || echo $s $t output
                cmp -s code saved || echo $s $t input
                ls -A | grep velkz- || :
            done; done 2>log)sh"},
        {"ignored", R"sh(mkfifo in; trap '' HUP; velkz -o a <in &
            exec 3>in; cat code >&3; kill -HUP $!; exec 3>&-; wait $!; velkcat a | cmp - code)sh"},
    });
}

TEST_F(Velkz, KnowsATerminal) {
    EXPECT_EQ(on_terminal("velkz -c text; velkz -d; velkz -f -o /dev/tty text"),
              "velkz: standard output: archives are not written to a terminal; -h for help\r\n"
              "velkz: standard input: archives are not read from a terminal; -h for help\r\n"
              "velkz: /dev/tty: archives are not written to a terminal; -h for help\r\n");
    const std::string question = "velkz: text.velk exists; overwrite it? (y/N) ";
    const char *const asked =
        "stty -echo; echo old >text.velk; velkz text; echo $?; wc -c <text.velk";
    EXPECT_TRUE(on_terminal(asked, "n\n")
                    .ends_with(question + "velkz: text.velk: exists, skipped\r\n2\r\n4\r\n"));
    EXPECT_TRUE(on_terminal(asked, "y\n").find(question + "0\r\n") != std::string::npos);

    const std::string slow = "{ cat text; sleep .7; cat text; } | velkz -b128K -o a ";
    const std::string shown = on_terminal(slow.c_str());
    EXPECT_TRUE(shown.starts_with("\rstandard input  ") &&
                shown.find(" MB, block 4, ratio ") != std::string::npos &&
                shown.ends_with("\r\x1B[K"))
        << shown;
    EXPECT_EQ(on_terminal((slow + "--no-progress").c_str()), "");
    EXPECT_EQ(on_terminal((slow + "2>a.log; cat a.log").c_str()), "");
    const std::string text = on_terminal("{ cat text.ref; sleep .7; } | velkcat");
    EXPECT_EQ(text.find("MB/s"), std::string::npos) << "progress in the text";
}

} // namespace
