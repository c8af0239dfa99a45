# The programs in Examples with real input, where `own` is the directory of an ordinary user, `user`.
step_examples() {
    local work name names=(usage logs timer ordinary backup) user=(env LD_LIBRARY_PATH=.)
    build_library || return 0
    check examples-build cmake --build --preset release --target Examples/all
    work=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-examples.XXXXXX")
    # Copies, as the way to this tree may be closed to another user.
    find Build/release/{Source,Examples} -maxdepth 1 ! -type d -perm -u+x -exec cp -P {} "$work" \;
    mkdir "$work/own" && printf 'a\nb\n' >"$work/own/two" && : >"$work/own/empty"
    if ((EUID == 0)); then
        names+=(other-user)
        ! unshare --mount true || names+=(priorities full-disk)
        user=(setpriv --reuid=nobody --regid=nogroup --init-groups "${user[@]}")
        chmod 755 "$work" && chown -R nobody "$work/own"
    fi
    for name in "${names[@]}"; do
        check "examples-$name" in_directory "$work" "examples_${name/-/_}"
    done
    rm -rf "$work"
}

in_directory() (cd -- "$1" && "$2")

# ends CODE COMMAND...: whether the command ends with that exit code.
ends() {
    local code=0
    timeout 60 "${@:2}" || code=$?
    ((code == $1)) || { echo "exit code $code and not $1: ${*:2}"; return 1; }
}

examples_usage() {
    local name
    for name in Backup LogToSpdlog LogToSyslog PrivilegedAction Timer Tour Watch; do
        ends 0 ./$name --help >out && ends 2 ./$name 2>err && diff out err && grep "^usage: ./$name [A-Z[]" out &&
            ends 2 ./$name --bogus x y || return
    done
    ends 2 ./Timer 1x && ends 2 ./Timer 0 && ends 2 ./Backup own own/ && ends 2 ./Backup own . && ends 1 ./Backup own no
}

examples_logs() {
    local statements files=(own/two own/empty own/$'no\nne')
    ends 1 ./LogToSyslog --stderr --trace "${files[@]}" 2>err && ends 1 ./LogToSpdlog log "${files[@]}" &&
        cat err log || return
    statements="[ENTER] 3 files;[own/two] has 2 lines;[own/empty] is empty;not counted, path[own/no?ne];[EXIT] 3 files"
    [[ $(sed 's/^LogToSyslog\[[0-9]*\]: CountLines: //; s/: Source.*failed//' err | paste -sd ';') == "$statements" &&
        $(sed 's/.*CountLines: //; s/: Source.*failed//; s/ (LineCounter.h:[0-9]*)$//' log | paste -sd ';') == \
        "$statements" && $(cut -d ' ' -f 3 log | paste -sd ' ') == "trace info warning error trace" ]]
}

# In a mount namespace of its own /dev has nothing but a socket of ours, where syslog(3) sends its datagrams.
examples_priorities() {
    mkdir dev && unshare --mount bash -euc 'mount --bind dev /dev; exec perl -MIO::Socket::UNIX' >out <<'END'
        my $log = IO::Socket::UNIX->new(Type => SOCK_DGRAM, Local => "/dev/log") or die $!;
        system("./LogToSyslog --trace own/empty own/two; ./LogToSyslog none");
        $log->blocking(0);
        print "$text\n" while defined $log->recv($text, 4096);
END
    cat out
    # LOG_USER is 8; behind it debug is 7, warning 4, info 6, err 3 and crit 2.
    [[ $(sed 's/^<\([0-9]*\)>.* LogToSyslog\[.*CountLines: .*/\1/' out | paste -sd ' ') == "15 12 14 15 11 10" ]]
}

# Not more than nine, however busy the machine is.
examples_timer() {
    ends 0 timeout --preserve-status --signal INT 0.98 ./Timer 100 >out && cat out &&
        [[ $(tail -n 1 out) =~ ^ended\ after\ ([1-9])\ ticks$ ]] && (($(grep --count late out) == BASH_REMATCH[1]))
}

examples_ordinary() {
    ends 1 "${user[@]}" ./PrivilegedAction no-such-user own/two own/never &&
        ends 1 "${user[@]}" ./PrivilegedAction root own/two own/never 2>err && cat err &&
        grep --quiet 'not handed over to root: error 1314' err && [[ ! -e own/never ]]
}

examples_other_user() {
    local refuses=(ends 1 ./PrivilegedAction nobody)
    (umask 077 && echo secret >secret) && ln -s "$PWD/elsewhere" own/link &&
        ends 0 ./PrivilegedAction nobody secret own/got && [[ $(stat --format %U own/got) == nobody ]] &&
        "${refuses[@]}" own/two own/got && cmp secret own/got && "${refuses[@]}" own/two own/link &&
        "${refuses[@]}" own/two not-his && "${refuses[@]}" none own/none &&
        [[ ! -e elsewhere && ! -e not-his && ! -e own/none ]]
}

examples_backup() {
    mkdir -p own/from/a/b own/to && cd own/from && ln -s / link && mkfifo fifo && echo deep >a/b/deep && : >empty &&
        echo ro >ro && chmod 444 ro && echo no >unreadable && chmod 000 unreadable && printf x >a/$'\xe4\xff.txt' &&
        echo 1 >'x:*\?' && head -c 3000000 /dev/urandom >large && cd ../.. || return
    ((EUID != 0)) || chown -R nobody own
    backs_up 1 "6 copied, 0 unchanged, 1 links left out, 2 failed" &&
        backs_up 1 "0 copied, 6 unchanged, 1 links left out, 2 failed" &&
        rm -f own/from/{fifo,unreadable,ro,link} && echo RO >own/from/ro && chmod 444 own/from/ro &&
        touch -d 1999-01-01 own/from/ro && echo more >>own/from/large &&
        backs_up 0 "2 copied, 4 unchanged, 0 links left out, 0 failed" && diff -r own/from own/to &&
        [[ $(stat --format %a own/to/ro own/to/empty) == $'400\n600' ]] && ln -sf "$PWD/elsewhere" own/to/empty &&
        backs_up 1 "0 copied, 5 unchanged, 0 links left out, 1 failed" && [[ ! -e elsewhere ]]
}

backs_up() {
    ends "$1" "${user[@]}" ./Backup own/from own/to >out && cat out && [[ $(cat out) == "$2" ]]
}

# Without room for a second copy the first one stays whole, and nothing is left of the other.
examples_full_disk() {
    # shellcheck disable=SC2016
    mkdir from small && head -c 700000 /dev/urandom >from/file && cp from/file old && unshare --mount bash -euc '
        mount -t tmpfs -o size=1M tmpfs small
        ./Backup from small && echo more >>from/file
        ! ./Backup from small && cmp old small/file && [[ $(ls small) == file ]]'
}
