# bash completion for cpectl and cpectl-sim: commands, and the members of their arguments.
# Made from contract/ by './dev docs'; do not edit.
# shellcheck shell=bash

_cpectl_commands='getAdmPass setAdmPass getBaseInfo gwDevListGet devNmSet bindUrlSet localcfgUpdate reboot wanInfoGet wanInfoSet lanConfSet lanConfGet getHostNum getCpuMemLoad getWanFlowinfo getHostFlowinfo offline getStaList setStaList upGrade pushfw checkOta openIntranetProxy closeIntranetProxy ipsecOpen ipsecClose ipsecStaGet ipsecConfGet ipsecAddTun ipsecDelTun ipsecDelAllTun ipsecTunStaGet ipsecTunShutdown ipsecTunReconn ipsecTunReboot pptpdOpen pptpdClose pptpdStaGet pptpdConfGet pptpdAddUser pptpdDelUser pptpdDelAllUser pptpdUserStaGet pptpcOpen pptpcClose pptpcConfgGet pptpcStaGet pptpcReconn pptpcShutdown'

# Prints a command's argument object with empty values; nothing for one without arguments.
_cpectl_arguments() { # COMMAND
    case $1 in
        setAdmPass) printf '%s' '{"admPass":""}' ;;
        devNmSet) printf '%s' '{"devNm":""}' ;;
        bindUrlSet) printf '%s' '{"bindUrl":""}' ;;
        wanInfoSet) printf '%s' '{"WAN1":{"wanType":"","wanIp":"","wanNetmask":"","wanGateway":"","wanDns1":"","wanDns2":"","pppoeUser":"","pppoePwd":"","dhcpType":"","dhcpDns1":"","dhcpDns2":""}}' ;;
        lanConfSet) printf '%s' '{"lanIp":"","lanNetmask":""}' ;;
        offline) printf '%s' '{"mac":""}' ;;
        upGrade) printf '%s' '{"upGradeUrl":"","upGradeMd5":"","upGradeNm":""}' ;;
        pushfw) printf '%s' '{"fwurl":"","fwname":"","fwmd5":"","fwdesc":""}' ;;
        openIntranetProxy) printf '%s' '{"serverHost":"","serverPort":"","clientKey":"","timeout":""}' ;;
        ipsecConfGet) printf '%s' '{"postUrl":""}' ;;
        ipsecAddTun) printf '%s' '{"tunCfg":""}' ;;
        ipsecDelTun) printf '%s' '{"tunName":""}' ;;
        ipsecTunShutdown) printf '%s' '{"tunName":""}' ;;
        ipsecTunReconn) printf '%s' '{"tunName":""}' ;;
        ipsecTunReboot) printf '%s' '{"tunName":""}' ;;
        pptpdOpen) printf '%s' '{"ip":{"start":"","end":""},"encrypt":""}' ;;
        pptpdConfGet) printf '%s' '{"postUrl":""}' ;;
        pptpdAddUser) printf '%s' '{"userCfg":""}' ;;
        pptpdDelUser) printf '%s' '{"userName":""}' ;;
        pptpcOpen) printf '%s' '{"serverIp":"","userName":"","userPasswd":"","serverNet":"","serverMask":"","encrypt":""}' ;;
    esac
}

# Completes word COMP_CWORD, given which word (by its number) is the command.
_cpectl_word() { # NUMBER
    local word=${COMP_WORDS[COMP_CWORD]} template
    if ((COMP_CWORD == $1)); then
        mapfile -t COMPREPLY < <(compgen -W "$_cpectl_commands" -- "$word")
    elif ((COMP_CWORD == $1 + 1)) && [[ -z $word ]]; then
        template=$(_cpectl_arguments "${COMP_WORDS[$1]}")
        [[ -z $template ]] || COMPREPLY=("'$template'")
    fi
}

_cpectl() {
    COMPREPLY=()
    _cpectl_word 1
}

_cpectl_sim() {
    local at=1 word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--fresh --helpers --lib-root --platform --program --qemu --reboot --recording --scenario --shell --state --trace --trace=json --usage' -- "$word")
        return
    fi
    while ((at < COMP_CWORD)) && [[ ${COMP_WORDS[at]} == -* ]]; do
        case ${COMP_WORDS[at]} in
            --helpers | --lib-root | --platform | --program | --qemu | --recording | --scenario | --state)
                ((at++))
                # The value is a name of a file or directory.
                if ((at == COMP_CWORD)); then
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    return
                fi
                ;;
        esac
        ((at++))
    done
    _cpectl_word "$at"
}

complete -F _cpectl cpectl
complete -F _cpectl_sim cpectl-sim
