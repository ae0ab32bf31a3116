// Sends Art-Net through the npm package dmxnet: node npm_sender.js ADDRESS FRAMES
// Three universes a frame, at intervals that vary from 15 to 45 ms.
'use strict';
const { dmxnet } = require('dmxnet');

const [address, frames] = [process.argv[2], Number(process.argv[3])];
const network = new dmxnet({ log: { level: 'error' } });
const senders = [1, 2, 3].map((universe) =>
  network.newSender({ ip: address, net: 1, subnet: 3, universe, base_refresh_interval: 3600000 }));

// The package does not say when a packet has left; its sockets do.
let leaving = 0;
for (const { socket } of senders) {
  const send = socket.send.bind(socket);
  socket.send = (...rest) => {
    const done = rest.pop();
    ++leaving;
    send(...rest, (error) => {
      done(error);
      if (--leaving === 0 && sent === frames) end();
    });
  };
}
// A socket that closes drops what it has not sent, so this comes last.
const end = () => {
  let open = senders.length;
  for (const sender of senders) {
    sender.socket.on('close', () => {
      if (--open > 0) return;
      console.log('sent');
      process.exit(0);
    });
    sender.stop();
  }
};

let state = 1;
const random = (limit) => {
  state = (state * 1103515245 + 12345) % 2147483648;
  return Math.floor(state / 65536) % limit;
};

let sent = 0;
const frame = () => {
  for (const sender of senders) {
    for (let channel = 0; channel < 512; ++channel) sender.prepChannel(channel, random(256));
    sender.transmit();
  }
  if (++sent < frames) setTimeout(frame, 15 + random(31));
};
// Its sockets are ready with the first turn of the event loop that has bound them.
const begin = () => (senders.every((sender) => sender.socket_ready) ? frame() : setTimeout(begin, 10));
begin();
