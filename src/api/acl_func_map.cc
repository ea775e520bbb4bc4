#include "api/acl_func_map.h"

#include "api/acl_gemport_api.h"
#include "api/acl_if_api.h"
#include "api/acl_index_conv.h"
#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "api/acl_scalar_api.h"
#include "api/acl_slot_api.h"
#include "api/acl_stats_api.h"
#include "counter/counter.h"
#include "meter/meter.h"

// A function is registered here when it is built; until then its slot keeps its id and has no
// function. The ids are a contract with every client: they never move, gaps included.
const IcmFuncEntry gAclFuncMap[ACL_FUNC_MAP_ENTRIES] = {
    {0, nullptr},   // 0: empty
    {1, aclScalarGetApi},
    {2, aclScalarSetApi},
    {3, aclScalarSyncApi},
    {4, aclLstGetFirst},
    {5, aclLstGetNext},
    {6, aclLstGetApi},
    {7, aclLstSetApi},
    {8, aclLstSyncApi},
    {9, aclRuleGetFirst},
    {10, aclRuleGetNext},
    {11, aclRuleGetApi},
    {12, aclRuleSetApi},
    {13, aclRuleSyncApi},
    {14, aclIfLstGetFirst},
    {15, aclIfLstGetNext},
    {16, aclIfGetFirst},
    {17, aclIfGetNext},
    {18, aclIfGetApi},
    {19, aclIfSetApi},
    {20, aclIfSyncApi},
    {21, aclStatsGetFirst},
    {22, aclStatsGetNext},
    {23, aclStatsGetApi},
    {24, aclStatsSetApi},
    {25, aclStatsSyncApi},
    {26, aclIfStatsGetFirst},
    {27, aclIfStatsGetNext},
    {28, aclIfStatsGetApi},
    {29, aclIfStatsSetApi},
    {30, aclIfStatsSyncApi},
    {0, nullptr},   // 31: empty
    {0, nullptr},   // 32: empty
    {0, nullptr},   // 33: empty
    {0, nullptr},   // 34: empty
    {0, nullptr},   // 35: empty
    {0, nullptr},   // 36: empty
    {0, nullptr},   // 37: empty
    {0, nullptr},   // 38: empty
    {0, nullptr},   // 39: empty
    {0, nullptr},   // 40: empty
    {0, nullptr},   // 41: empty
    {0, nullptr},   // 42: empty
    {0, nullptr},   // 43: empty
    {0, nullptr},   // 44: empty
    {45, aclFreeIdxToIndex},
    {46, aclIndexToFreeIdx},
    {0, nullptr},   // 47: empty
    {48, aclSlotSetApi},
    {49, aclSlotSyncApi},
    {50, meterScalarGetApi},
    {51, meterScalarSetApi},
    {52, meterScalarSyncApi},
    {53, meterGetFirst},
    {54, meterGetNext},
    {55, meterGetApi},
    {56, meterSetApi},
    {57, meterSyncApi},
    {58, meterProfileGetFirst},
    {59, meterProfileGetNext},
    {60, meterProfileGetApi},
    {61, meterProfileSetApi},
    {62, meterProfileSyncApi},
    {63, counterScalarGetApi},
    {64, counterScalarSetApi},
    {65, counterScalarSyncApi},
    {66, counterGetFirst},
    {67, counterGetNext},
    {68, counterGetApi},
    {69, counterSetApi},
    {70, counterSyncApi},
    {71, aclSlotResourceGetFirst},
    {72, aclSlotResourceGetNext},
    {73, aclSlotResourceGetApi},
    {0, nullptr},   // 74: empty
    {75, aclGemPortLstGetFirst},
    {76, aclGemPortLstGetNext},
    {77, aclGemPortGetFirst},
    {78, aclGemPortGetNext},
    {79, aclGemPortGetApi},
    {80, aclGemPortSetApi},
    {81, aclGemPortSyncApi},
    {82, aclGemPortStatsGetFirst},
    {83, aclGemPortStatsGetNext},
    {84, aclGemPortStatsGetApi},
    {85, aclGemPortStatsSetApi},
    {86, aclGemPortStatsSyncApi},
};
