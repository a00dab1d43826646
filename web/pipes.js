// Camera pipes: the blocks that each one passes, in the order in which frames take them.

/// Map from a pipe's number to its passages {block, instance, input, output, lost}; `lost` are the
/// frames a second that enter a block and do not leave it, null if one of both is not known.
export function passages(rows) {
    const pipes = new Map();
    for (const row of rows) {
        const {input_fps: input, output_fps: output} = row;
        const lost = input === null || output === null ? null : Math.max(0, input - output);
        const passage = {block: row.block, instance: row.instance, input, output, lost};
        if (pipes.has(row.pipe))
            pipes.get(row.pipe).push(passage);
        else
            pipes.set(row.pipe, [passage]);
    }
    return pipes;
}

/// How many pipes there are, and in how many of them frames are lost.
export function pipe_counts(rows) {
    const all = [...passages(rows).values()];
    return {count: all.length, losing: all.filter((way) => way.some((each) => each.lost > 0)).length};
}
