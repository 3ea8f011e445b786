// The search: names of the interface at once, then pages by Pagefind, whose index lies beside the pages. Where pages are
// read from files, browsers load no modules: then names alone are found, as in a site without the index.
(() => {
    'use strict';
    const root = document.currentScript.dataset.root;
    const query = document.getElementById('query');
    const results = document.getElementById('results');
    const menu = document.getElementById('menu');
    const wide = matchMedia('(min-width: 60.01rem)');
    let pagefind;
    let turn = 0; // of the query that is shown

    const fitMenu = () => { menu.open = wide.matches; };
    fitMenu();
    wide.addEventListener('change', fitMenu);

    function names(text) {
        const wanted = text.toLowerCase();
        const rank = ([name]) => {
            const at = name.toLowerCase().indexOf(wanted);
            return name.toLowerCase() === wanted ? -1 : at;
        };
        return window.vyxNames.filter(([name]) => name.toLowerCase().includes(wanted))
            .sort((a, b) => rank(a) - rank(b) || a[0].length - b[0].length).slice(0, 8)
            .map(([name, place]) => ({title: name, place: root + place}));
    }

    async function pages(text) {
        if (location.protocol === 'file:')
            return [];
        try {
            pagefind ??= await import(new URL(root + 'pagefind/pagefind.js', location.href));
        } catch {
            return []; // the site was built without the index
        }
        const found = await pagefind.search(text);
        const data = await Promise.all(found.results.slice(0, 8).map(result => result.data()));
        return data.map(page => {
            const part = page.sub_results[0] ?? page;
            return {title: part === page || part.title === page.meta.title ? page.meta.title : `${page.meta.title}: ${part.title}`,
                place: part.url ?? page.url, excerpt: part.excerpt};
        });
    }

    function show(list, text) {
        const items = list.map(({title, place, excerpt}) => {
            const item = document.createElement('li');
            const link = document.createElement('a');
            link.href = place;
            link.textContent = title;
            if (excerpt) {
                const words = document.createElement('small');
                words.innerHTML = excerpt; // Pagefind's, escaped but for the marks
                link.append(words);
            }
            item.append(link);
            return item;
        });
        const all = document.createElement('ul');
        all.append(...items);
        const nothing = document.createElement('span');
        nothing.textContent = 'Nothing found';
        results.replaceChildren(items.length ? all : nothing);
        results.hidden = text === '';
    }

    query.addEventListener('input', async () => {
        const text = query.value.trim();
        const own = ++turn;
        const found = text === '' ? [] : names(text);
        show(found, text);
        if (text.length < 2)
            return;
        const more = await pages(text);
        if (own === turn)
            show(found.concat(more), text);
    });
    document.getElementById('search').addEventListener('submit', event => {
        event.preventDefault();
        results.querySelector('a')?.click();
        results.hidden = true;
    });
    results.addEventListener('click', () => { results.hidden = true; });
    document.addEventListener('keydown', event => {
        if (event.key === 'Escape')
            results.hidden = true;
        if (event.key === '/' && document.activeElement !== query) {
            event.preventDefault();
            query.focus();
        }
        const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
        const links = [query, ...results.querySelectorAll('a')];
        const at = links.indexOf(document.activeElement);
        if (step && at >= 0 && !results.hidden) {
            event.preventDefault();
            links[Math.min(Math.max(at + step, 0), links.length - 1)].focus();
        }
    });
})();
