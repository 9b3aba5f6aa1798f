"""Sixteen processes with mixed commands on one gateway: nothing is lost, torn or left running."""

import json
import re

import commands
from rig import LONG

SECONDS = 60 if LONG else 6

# Each worker repeats its commands, "@" being the number of its round, until the time is over. What
# is answered goes to a file of its own.
WORKER = """
name=$1
round=0
end=$(($(date +%s) + $2))
while [ $(date +%s) -lt $end ]; do
    round=$((round + 1))
    while read -r command text; do
        text=$(echo "$text" | sed "s/@/$round/g")
        if [ "$text" ]; then
            /usr/sbin/cpectl "$command" "$text"
        else
            /usr/sbin/cpectl "$command"
        fi >>/opt/out.$name 2>>/opt/err.$name
        status=$?
        [ $command = localcfgUpdate ] && echo >>/opt/out.$name
        echo "$command $status" >>/opt/status.$name
    done </opt/work.$name
    echo $round >/opt/rounds.$name
done
"""


def wan(number):
    return 'wanInfoSet {"WAN%d":{"wanType":"STATIC","wanIp":"%d.@","wanDns1":"d@"}}' % (
        number, number)


# name: (commands of a round, values that the keys have after the last round)
SETTERS = {
    "wan1": ([wan(1)], {"WAN1_IP": "1.@", "WAN1_DNS1": "d@"}),
    "wan2": ([wan(2)], {"WAN2_IP": "2.@", "WAN2_DNS1": "d@"}),
    "names": (['devNmSet {"devNm":"n@"}', 'bindUrlSet {"bindUrl":"u@"}'],
              {"HOSTNAME": "n@", "CPECTL_BINDURL": "u@"}),
    "lan": (['lanConfSet {"lanIp":"10.0.0.@","lanNetmask":"m@"}'],
            {"LAN_IP": "10.0.0.@", "LAN_NETMASK": "m@", "DHCP_DNS1": "10.0.0.@"}),
    "pptpd": (['pptpdOpen {"ip":{"start":"s@","end":"e@"},"encrypt":"YES"}'],
              {"PPTPD_REMOTEIP_START": "s@", "PPTPD_REMOTEIP_END": "e@"}),
    "pptpc": (['pptpcOpen {"serverIp":"s@","userName":"u@","userPasswd":"p","serverNet":"n",'
               '"serverMask":"m","encrypt":"YES"}'],
              {"PPTPC_SERVER": "s@", "PPTPC_USER": "u@"}),
    "proxy": (['openIntranetProxy {"serverHost":"h@","serverPort":"1","clientKey":"k@",'
               '"timeout":"9"}'], {"PROXY_SERVER_IP": "h@", "PROXY_SERVER_KEY": "k@"}),
    "password": (['setAdmPass {"admPass":"p @"}'], {"ADMIN_AUTH": "p @"}),
}
SECOND_STORE = {
    "upgrade": (['upGrade {"upGradeUrl":"u@","upGradeMd5":"m@","upGradeNm":"n@"}'],
                {"CPECTL_FIRMWARE_URL": "u@", "CPECTL_FIRMWARE_NAME": "n@"}),
}
OTHERS = {
    "tunnels-a": ['ipsecAddTun {"tunCfg":"a@ 1 2 3 4 192.0.2.1 a@"}',
                  'ipsecAddTun {"tunCfg":"ax@ 1 2 3 4 192.0.2.1 ax@"}',
                  'ipsecDelTun {"tunName":"ax@"}'],
    "tunnels-b": ['ipsecAddTun {"tunCfg":"b@ 1 2 3 4 192.0.2.1 b@"}'],
    "users": ['pptpdAddUser {"userCfg":"c@ secret c@"}', 'pptpdAddUser {"userCfg":"cx@ s cx@"}',
              'pptpdDelUser {"userName":"cx@"}'],
    "identity-a": ["localcfgUpdate"],
    "identity-b": ["localcfgUpdate", "getBaseInfo", "getAdmPass", "wanInfoGet"],
    "states-a": ["ipsecTunStaGet"],
    "states-b": ["ipsecTunStaGet", "pptpdUserStaGet", "lanConfGet"],
}
WORKERS = {**{name: work for name, (work, _) in {**SETTERS, **SECOND_STORE}.items()}, **OTHERS}
TUNNELS = [f"keep{number} 1 2 3 4 192.0.2.{number} {'x' * 300}" for number in range(1, 31)]
STATUS = "".join(f'    print 000 #2: "conn_keep{number}":500 (IPsec SA established); eroute owner\n'
                 for number in range(1, 31))


def run_all(gateway):
    commands.prepare(gateway, "[script /usr/local/sbin/ipsec whack --status]\n" + STATUS)
    gateway.write("/disk/conf/ipsec.cfg", "".join(f"{line}\n" for line in TUNNELS).encode())
    gateway.write("/opt/worker", WORKER.encode())
    start = ""
    for name, work in WORKERS.items():
        gateway.write(f"/opt/work.{name}", "".join(f"{line}\n" for line in work).encode())
        start += f"sh /opt/worker {name} {SECONDS} &\n"
    outcome = gateway.script(start + "wait\n", seconds=SECONDS * 10 + 60)
    assert outcome.result.exit_line() == "0" and not outcome.result.lingering
    return outcome


def rounds(gateway, name):
    return gateway.read(f"/opt/rounds.{name}").decode().strip()


def check_answers(gateway, name):
    """Each request had its whole answer, on a line of its own, and nothing went wrong aloud."""
    lines = gateway.read(f"/opt/out.{name}").splitlines()
    statuses = gateway.read(f"/opt/status.{name}").decode().splitlines()
    assert len(lines) == len(statuses)
    for line, (command, status) in zip(lines, map(str.split, statuses)):
        assert status == ("255" if command == "localcfgUpdate" else "0"), (name, command, status)
        answer = json.loads(line)
        assert (answer["fun"], answer["stat"]) == (command, "ok"), line
        if command == "ipsecTunStaGet":
            check_states(answer["cbk"]["tun"])
    assert gateway.read(f"/opt/err.{name}") == b"", name
    return len(lines)


def check_states(tunnels):
    """Those that are there all the time are listed once, and none of the others twice."""
    names = [tunnel["name"] for tunnel in tunnels]
    assert len(names) == len(set(names)), names
    kept = [tunnel for tunnel in tunnels if tunnel["name"].startswith("keep")]
    assert [tunnel["name"] for tunnel in kept] == [line.split()[0] for line in TUNNELS]
    assert {tunnel["stat"] for tunnel in kept} == {"1"}


def added(gateway, name, letter, line):
    """The lines that a worker added and did not delete."""
    done = int(rounds(gateway, name))
    return [line.replace("@", f"{letter}{number}") for number in range(1, done + 1)]


def test_mixed_commands_at_once(gateway, figure):
    run_all(gateway)
    total = sum(check_answers(gateway, name) for name in WORKERS)
    running, committed, second = map(gateway.store, ("nvram", "committed", "mvram"))
    for name, (_, keys) in SETTERS.items():
        for key, value in keys.items():
            last = value.replace("@", rounds(gateway, name))
            assert running[key] == last, key
            assert committed[key] == last or name == "proxy", key
    for name, (_, keys) in SECOND_STORE.items():
        for key, value in keys.items():
            assert second[key] == value.replace("@", rounds(gateway, name)), key
    assert running.keys() >= commands.NVRAM.keys()

    tunnels = gateway.read("/disk/conf/ipsec.cfg").decode().splitlines()
    assert tunnels[:len(TUNNELS)] == TUNNELS
    assert sorted(tunnels[len(TUNNELS):]) == sorted(
        added(gateway, "tunnels-a", "a", "@ 1 2 3 4 192.0.2.1 @") +
        added(gateway, "tunnels-b", "b", "@ 1 2 3 4 192.0.2.1 @"))
    users = gateway.read("/disk/conf/pptpuser.cfg").decode().splitlines()
    assert users == ["ann secret", "bob secret", *added(gateway, "users", "c", "@ secret @")]

    identity = gateway.read("/etc/cpectl.cfg").decode()
    assert [len(re.findall(f"^</{label}> ", identity, re.MULTILINE))
            for label in ("CP_SW_VERSION", "CP_SW_MODEL", "CP_HW_ADDRESS")] == [1, 1, 1], identity
    assert "kept\n" in identity
    assert not [name for name in gateway.names() if ".new" in name or "tmp_write" in name]
    figure(f"{total} requests of {len(WORKERS)} processes in {SECONDS} s")
