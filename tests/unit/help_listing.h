// The help listing, byte for byte.
#pragma once

inline constexpr char kHelpListing[] =
    R"(getAdmPass               0
setAdmPass               1 admPass
getBaseInfo              0
gwDevListGet             0
devNmSet                 1 devNm
getHostNum               0
getCpuMemLoad            0
getWanFlowinfo           0
getHostFlowinfo          0
offline                  1 mac
bindUrlSet               1 bindUrl
getStaList               0
localcfgUpdate           0
wanInfoGet               0
wanInfoSet               5 wanIp,wanNetmask,wanGateway,wanDns1,wanDns2
lanConfSet               2 lanIp,lanNetmask
lanConfGet               0
reboot                   0
upGrade                  3 upGradeUrl,upGradeMd5,upGradeNm
pushfw                   4 fwurl,fwname,fwmd5,fwdesc
checkOta                 0
setStaList               0
openIntranetProxy        4 serverHost,serverPort,clientKey,timeout
closeIntranetProxy       0
ipsecOpen                0
ipsecClose               0
ipsecStaGet              0
ipsecConfGet             1 postUrl
ipsecAddTun              1 tunCfg
ipsecDelTun              1 tunName
ipsecDelAllTun           0
ipsecTunStaGet           0
ipsecTunShutdown         1 tunName
ipsecTunReconn           1 tunName
ipsecTunReboot           1 tunName
pptpdOpen                2 ip,encrypt
pptpdClose               0
pptpdStaGet              0
pptpdConfGet             1 postUrl
pptpdAddUser             1 userCfg
pptpdDelUser             1 userName
pptpdDelAllUser          0
pptpdUserStaGet          0
pptpcOpen                6 serverIp,userName,userPasswd,serverNet,serverMask,encrypt
pptpcClose               0
pptpcConfgGet            0
pptpcStaGet              0
pptpcReconn              0
pptpcShutdown            0
)";
