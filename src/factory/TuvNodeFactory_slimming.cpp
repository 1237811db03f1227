#include "cleanup/TuvLipoNode.h"
#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "support/Stopwatch.h"

namespace kavaro {

LipoTables TuvNodeFactory::lipoNodesInfo(const std::vector<LipoQuestion>& files) {
    TuvLog::info(factoryLog, "lipoNodesInfo:", "%d files, all files", files.size());
    const Stopwatch watch;
    LipoTables tables;
    for (const LipoQuestion& file : files) {
        PropertyList table = TuvLipoNode::lipoInfo(file.filePath);
        if (!table.dictionary()->empty()) tables.insert_or_assign(file.inode, std::move(table));
    }
    TuvLog::info(factoryLog, "lipoNodesInfo:", "got lipo info on %d Nodes in %9.3f ms", files.size(),
                 watch.milliseconds());
    return tables;
}

void TuvNodeFactory::lipoNodes(const std::vector<LipoRemoval>& files) {
    TuvLog::info(factoryLog, "lipoNodes:", "%d files, %@", files.size(), workerText());
    for (const LipoRemoval& file : files) TuvLipoNode::lipoNode(file.filePath, file.archTypes);
}

}  // namespace kavaro
