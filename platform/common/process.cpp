/*
 * process.cpp - what is known of this process: its anchor, its control block, its message context.
 */
#include "ztsvc.h"
#include "zttrc.h"

#include <pthread.h>
#include <unistd.h>

ThdProcess thdProcess = {TRC_UNSETTLED, 0, 0};

const SvcMiniSubpool svcIC_MINI_SUBPOOL = {0x534D494E49504F4F, 1}; // the eye-catcher "SMINIPOO"

namespace ztm {

namespace {

SvcCtrl controlBlock;
pthread_once_t controlBlockOnce = PTHREAD_ONCE_INIT;

void fillControlBlock() {
    controlBlock.userId = getuid();
}

} // namespace

} // namespace ztm

const SvcCtrl *svcGetCtrl(void) {
    (void)pthread_once(&ztm::controlBlockOnce, ztm::fillControlBlock);
    return &ztm::controlBlock;
}
