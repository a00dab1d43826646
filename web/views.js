// Kinds of blocks: which class draws a block of the table in blocks.js.

import {chart_block} from "./chart.js";
import {pipes_block} from "./pipes_view.js";
import {table_block} from "./table.js";

const views = {pipes: pipes_block};

/// Makes the block that an entry declares.
export function make_block(block, declared, page) {
    if (block.chart)
        return new chart_block(block, declared, page);
    if (block.table)
        return new table_block(block, declared);
    return new views[block.view](block);
}
